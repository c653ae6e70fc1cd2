#include <Platform/JSON/Detail/JSONDocument.hpp>
#include <Platform/JSON/JSONDecoder.hpp>

namespace tarn {
namespace detail {

JSONDocument::JSONDocument(std::string_view text, const JSONDecoder& decoder)
    : text_(text), decoder_(decoder) {
  if (const auto fault = index_.build(text))
    throw DecodingError::dataCorrupted({}, std::string(*fault));
}

void JSONDocument::read(void (*decode)(JSONReader&, void*), void* value) const {
  JSONReader reader(text_, index_.tokens(), decoder_);
  decode(reader, value);
  if (reader.token_ == index_.tokens().data()) reader.skip();
  if (!reader.atEnd()) reader.failSyntax("the end of the text");
}

void JSONDocument::check() const {
  read([](JSONReader& reader, void*) { reader.skip(); }, nullptr);
}

bool isDocument(std::string_view json, std::size_t maximumDepth) {
  JSONDecoder decoder;
  decoder.maximumDepth = maximumDepth;
  try {
    JSONDocument(json, decoder).check();
    return true;
  } catch (const DecodingError&) {
    return false;
  }
}

void decodeDocument(std::string_view json, const JSONDecoder& decoder,
                    void (*decode)(JSONReader&, void*), void* value) {
  // Some services send one; RFC 8259 section 8.1 lets a reader pass over it.
  constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
  if (json.starts_with(byteOrderMark)) json.remove_prefix(byteOrderMark.size());
  const JSONDocument document(json, decoder);
  try {
    document.read(decode, value);
  } catch (const DecodingError& error) {
    // A reader stops at the first value that does not fit; whether the text is JSON at all comes
    // first.
    if (error.kind() != DecodingError::Case::dataCorrupted) document.check();
    throw;
  }
}

}  // namespace detail
}  // namespace tarn

#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/FoundationCoding.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

namespace tarn::detail {
namespace {

// What T::parse makes of a string.
template <class T>
T parsed(JSONReader& reader, const char* expected) {
  const std::string text = reader.string();
  const auto value = T::parse(text);
  if (!value)
    reader.failCorrupted(std::string("expected ") + expected + ", found the string " +
                         quoted(text));
  return *value;
}

}  // namespace

JSONDate decodeDate(JSONReader& reader) { return reader.decoder().dateDecodingStrategy(reader); }

void encodeDate(JSONDate date, JSONWriter& writer) {
  writer.encoder().dateEncodingStrategy(date, writer);
}

double decodeSeconds(JSONReader& reader, double least, double greatest) {
  const double seconds = reader.floatingPoint<double>();
  // Also where it is not a number.
  if (!(seconds >= least && seconds <= greatest))
    reader.failCorrupted("this number of seconds is out of range");
  return seconds;
}

URL DefaultCoding<URL>::decode(JSONReader& reader) { return parsed<URL>(reader, "a URL"); }

void DefaultCoding<URL>::encode(const URL& url, JSONWriter& writer) {
  writer.string(url.absoluteString());
}

UUID DefaultCoding<UUID>::decode(JSONReader& reader) { return parsed<UUID>(reader, "a UUID"); }

void DefaultCoding<UUID>::encode(const UUID& uuid, JSONWriter& writer) {
  writer.string(uuid.uuidString());
}

Data DefaultCoding<Data>::decode(JSONReader& reader) {
  return reader.decoder().dataDecodingStrategy(reader);
}

void DefaultCoding<Data>::encode(const Data& bytes, JSONWriter& writer) {
  writer.encoder().dataEncodingStrategy(bytes, writer);
}

}  // namespace tarn::detail

#include <TarnService/PayloadEncoding/Detail/SectionHead.hpp>
#include <TarnService/PayloadEncoding/MultipartFormSection.hpp>

#include <string_view>

namespace tarn {
namespace {

constexpr std::string_view lineEnds = "\r\n";
constexpr std::string_view lineEndsAndQuote = "\r\n\"";

std::string encoding(std::string_view characters, std::string_view text) {
  std::string encoded;
  for (const char character : text) {
    if (characters.find(character) == characters.npos) {
      encoded += character;
    } else {
      encoded += character == '\r' ? "%0D" : character == '\n' ? "%0A" : "%22";
    }
  }
  return encoded;
}

}  // namespace

std::map<std::string, std::string> MultipartFormSection::headers() const {
  // The line end inside of the value is kept: with the one behind the field it makes the empty line
  // of a section, in front of the content type, and puts a file's name on a line of its own.
  std::string disposition = "form-data; name=\"" + encoding(lineEndsAndQuote, name) + "\"\r\n";
  if (fileURL) {
    disposition +=
        "; filename=\"" + encoding(lineEndsAndQuote, fileURL->lastPathComponent()) + "\"";
  }
  std::map<std::string, std::string> headers{{"Content-Disposition", std::move(disposition)}};
  if (contentType) headers.emplace("Content-Type", encoding(lineEnds, *contentType));
  return headers;
}

Data MultipartFormSection::asData() const {
  Data bytes(detail::sectionHead(*this));
  bytes.append(dataRepresentable.asData());
  return bytes;
}

std::string detail::sectionHead(const MultipartFormSection& section) {
  std::string head;
  for (const auto& [name, value] : section.headers()) head += name + ": " + value + "\r\n";
  return head;
}

}  // namespace tarn

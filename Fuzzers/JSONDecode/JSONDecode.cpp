#include <Platform/JSON/Detail/JSONDocument.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <Fuzzers/Fuzzer.hpp>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Any bytes as a document, read into a fixed set of types.
namespace tarn::fuzz {
namespace {

enum class Colour { red, green, blue };

struct Node {
  std::string name;
  std::optional<std::int32_t> weight;
  std::vector<Node> children;

  static constexpr JSONMembers defaultedMembers = {"name", "children"};
};

struct Record {
  bool flag = false;
  std::int8_t small = 0;
  std::uint64_t large = 0;
  float single = 0;
  double number = 0;
  std::string text;
  Colour colour = Colour::red;
  std::optional<std::vector<bool>> flags;
  std::array<std::int16_t, 2> pair{};
  std::map<std::string, std::variant<std::int64_t, double, std::string>> table;
  std::set<std::string> names;
  std::optional<URL> homePage;
  std::optional<UUID> identifier;
  std::optional<Data> bytes;
  std::optional<JSONDate> date;
  std::optional<std::chrono::milliseconds> delay;
  std::optional<JSONValue> anything;

  static constexpr JSONKeys codingKeys = {{"identifier", "_id"}};
  static constexpr JSONMembers defaultedMembers = {"flag", "small", "large", "single", "number",
                                                   "text", "pair",  "table", "names",  "colour"};
};

/// Alternatives that both look into the same elements: what is read again has to stay bounded.
struct Leaf;
struct Branch {
  std::vector<std::variant<Branch, Leaf>> parts;
  std::int32_t a;
};
struct Leaf {
  std::vector<std::variant<Branch, Leaf>> parts;
  std::int32_t b;
};

/// Reads as a type's own coding may: some values by attempts, some as they stand, some not at all,
/// looks for a second one, and goes on after failures.
struct Wanderer {
  std::string found;

  static Wanderer decode(JSONReader& reader) {
    Wanderer result;
    result.visit(reader);
    return result;
  }
  void encode(JSONWriter& writer) const { writer.string(found); }

 private:
  void visit(JSONReader& reader) {
    if (reader.attempt([&] { found += std::to_string(reader.integer<std::int16_t>()); })) return;
    if (reader.kind() == JSONReader::Kind::array)
      return reader.array([&] { visitElement(reader); });
    if (reader.kind() != JSONReader::Kind::object) return reader.skip();
    reader.object([&](std::string_view key) { visitMember(reader, key); });
  }
  void visitElement(JSONReader& reader) {
    try {
      reader.object([&](std::string_view) { visit(reader); });
    } catch (const DecodingError& error) {
      found += error.reason();
    }
  }
  void visitMember(JSONReader& reader, std::string_view key) {
    found += key;
    if (key == "text") found += reader.text();
    if (key == "twice") visitTwice(reader);
    if (key == "inside") visit(reader);
  }
  void visitTwice(JSONReader& reader) {
    reader.skip();
    if (reader.attempt([&] { reader.skip(); })) reader.failCorrupted("a value follows a value");
  }
};

/// A copy without a byte behind it, so that the address sanitizer sees a read beyond the end.
class Exact {
 public:
  explicit Exact(std::span<const std::uint8_t> bytes)
      : size_(bytes.size()), bytes_(std::make_unique<char[]>(size_)) {
    if (size_ > 0) std::memcpy(bytes_.get(), bytes.data(), size_);
  }
  std::string_view view() const noexcept { return {bytes_.get(), size_}; }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> bytes_;
};

std::string encoded(const auto& value, const JSONEncoder& encoder = JSONEncoder()) {
  return std::string(encoder.encode(value).view());
}

/// What comes of a document as text: the value written again, or the error.
template <class T>
std::string outcome(std::string_view json, const JSONDecoder& decoder, bool isDocument) {
  try {
    const T value = decoder.decode<T>(json);
    require(isDocument, "only JSON is accepted");
    JSONEncoder encoder;
    encoder.nonConformingFloats = decoder.nonConformingFloats;
    return encoded(value, encoder);
  } catch (const DecodingError& error) {
    require(isDocument || error.kind() == DecodingError::Case::dataCorrupted,
            "text that is no JSON is dataCorrupted");
    return "error " + std::to_string(error.code()) + ' ' + error.message();
  }
}

template <class T>
void check(std::string_view json, const JSONDecoder& decoder, bool isDocument) {
  require(outcome<T>(json, decoder, isDocument) == outcome<T>(json, decoder, isDocument),
          "the same text has the same outcome");
}

void checkValue(std::string_view json, bool isDocument) {
  const JSONDecoder decoder;
  std::optional<JSONValue> value;
  try {
    value = decoder.decode<JSONValue>(json);
  } catch (const DecodingError& error) {
    require(!isDocument || error.reason().ends_with("is out of range"),
            "JSON is accepted unless a number is too large");
    return;
  }
  require(isDocument, "only JSON is accepted");
  JSONEncoder pretty;
  pretty.outputFormatting = {.sortedKeys = true, .prettyPrinted = true};
  require(decoder.decode<JSONValue>(encoded(*value)) == *value, "what is written reads back");
  require(decoder.decode<JSONValue>(encoded(*value, pretty)) == *value,
          "what is written on lines reads back");
}

/// The text that has to be a document: one mark in front is passed over.
std::string_view withoutByteOrderMark(std::string_view json) {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  return json.starts_with(mark) ? json.substr(mark.size()) : json;
}

JSONDecoder otherDecoder() {
  JSONDecoder decoder;
  decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  decoder.dateDecodingStrategy = JSONDecoder::iso8601;
  decoder.nonConformingFloats = {"inf", "-inf", "nan"};
  return decoder;
}

}  // namespace

void fuzzOne(std::span<const std::uint8_t> input) {
  const Exact text(input);
  const auto json = text.view();
  const JSONDecoder decoder;
  const bool isDocument = detail::isDocument(withoutByteOrderMark(json), decoder.maximumDepth);
  checkValue(json, isDocument);
  check<JSONValue>(json, decoder, isDocument);
  check<Record>(json, decoder, isDocument);
  check<Record>(json, otherDecoder(), isDocument);
  check<std::vector<Record>>(json, decoder, isDocument);
  check<Node>(json, decoder, isDocument);
  check<Wanderer>(json, decoder, isDocument);
  check<Branch>(json, decoder, isDocument);
  check<std::map<std::string, std::optional<std::int64_t>>>(json, decoder, isDocument);
  check<std::vector<std::variant<bool, std::uint32_t, float, std::string>>>(json, decoder,
                                                                            isDocument);
}

}  // namespace tarn::fuzz

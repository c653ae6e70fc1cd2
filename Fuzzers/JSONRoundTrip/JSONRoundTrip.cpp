#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>
#include <Platform/JSON/JSONValue.hpp>

#include <Fuzzers/Fuzzer.hpp>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

// Values made from any bytes, written in some format, read, and compared.
namespace tarn::fuzz {
namespace {

/// The input, taken from its start; zeros once it is used up.
class Input {
 public:
  explicit Input(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  template <class T>
  T take() {
    T value{};
    const auto count = std::min(sizeof value, bytes_.size());
    if (count > 0) std::memcpy(&value, bytes_.data(), count);
    bytes_ = bytes_.subspan(count);
    return value;
  }
  bool flag() { return take<std::uint8_t>() % 2 == 1; }
  std::size_t count(std::size_t most) { return take<std::uint8_t>() % (most + 1); }
  bool isOver() const noexcept { return bytes_.empty(); }

 private:
  std::span<const std::uint8_t> bytes_;
};

enum class Colour { red, green, blue };
enum class Level : std::uint16_t { low = 1, high = 40000 };
constexpr JSONRawValues jsonCases(Level) { return {}; }

struct Point {
  double x = 0;
  float y = 0;
  bool operator==(const Point&) const = default;
};

struct Everything {
  bool isOn = false;
  std::int8_t int8 = 0;
  std::uint8_t uint8 = 0;
  std::int16_t int16 = 0;
  std::uint16_t uint16 = 0;
  std::int32_t int32 = 0;
  std::uint32_t uint32 = 0;
  std::int64_t int64 = 0;
  std::uint64_t uint64 = 0;
  float singleNumber = 0;
  double doubleNumber = 0;
  std::string plainText;
  Colour mainColour = Colour::red;
  Level level = Level::low;
  std::optional<std::int32_t> maybeNumber;
  std::optional<Point> maybePoint;
  std::vector<std::optional<std::string>> gappedTexts;
  std::vector<bool> flags;
  std::deque<Point> points;
  std::array<std::uint16_t, 3> triple{};
  std::map<std::string, std::vector<std::int64_t>> numbersByName;
  std::unordered_map<std::string, Point> pointsByName;
  std::set<std::string> names;
  std::variant<std::int64_t, std::string, std::vector<double>> choice;
  URL homePage = URL::empty();
  UUID identifier{UUID::Bytes{}};
  Data content;
  JSONDate changedAt;
  std::chrono::sys_seconds madeOn;
  std::chrono::milliseconds delay{};
  std::optional<JSONValue> anything;

  static constexpr JSONKeys codingKeys = {{"identifier", "_id"}, {"uint64", "a \"key\"\n"}};
  bool operator==(const Everything&) const = default;
};

/// Any number that is finite.
template <class T>
T floating(Input& input) {
  using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
  const T value = std::bit_cast<T>(input.take<Bits>());
  return std::isfinite(value) ? value : static_cast<T>(input.take<std::int32_t>()) / 3;
}

void appendUTF8(std::string& text, std::uint32_t c) {
  const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (c < 0x80) return append(c);
  if (c < 0x800) {
    append(0xC0 | (c >> 6));
  } else {
    if (c < 0x10000) {
      append(0xE0 | (c >> 12));
    } else {
      append(0xF0 | (c >> 18));
      append(0x80 | ((c >> 12) & 0x3F));
    }
    append(0x80 | ((c >> 6) & 0x3F));
  }
  append(0x80 | (c & 0x3F));
}

/// Any characters, most of them ASCII.
std::string text(Input& input) {
  std::string result;
  for (auto rest = input.count(80); rest > 0; --rest) {
    std::uint32_t c = input.take<std::uint8_t>();
    if (c >= 0xF0) c = input.take<std::uint32_t>() % 0x110000;
    appendUTF8(result, c >= 0xD800 && c < 0xE000 ? '?' : c);
  }
  return result;
}

Point point(Input& input) { return {floating<double>(input), floating<float>(input)}; }

JSONValue value(Input& input, int depth) {
  switch (input.take<std::uint8_t>() % (depth > 0 ? 8 : 6)) {
    case 0:
      return nullptr;
    case 1:
      return input.flag();
    case 2:
      return input.take<std::int64_t>();
    case 3:
      return input.take<std::uint64_t>();
    case 4:
      return floating<double>(input);
    case 5:
      return text(input);
    case 6: {
      JSONValue::Array elements;
      for (auto rest = input.count(5); rest > 0; --rest)
        elements.push_back(value(input, depth - 1));
      return elements;
    }
    default: {
      JSONValue::Object members;
      for (auto rest = input.count(5); rest > 0; --rest)
        members.insert_or_assign(text(input), value(input, depth - 1));
      return members;
    }
  }
}

void fillNumbers(Input& input, Everything& made) {
  made.isOn = input.flag();
  made.int8 = input.take<std::int8_t>();
  made.uint8 = input.take<std::uint8_t>();
  made.int16 = input.take<std::int16_t>();
  made.uint16 = input.take<std::uint16_t>();
  made.int32 = input.take<std::int32_t>();
  made.uint32 = input.take<std::uint32_t>();
  made.int64 = input.take<std::int64_t>();
  made.uint64 = input.take<std::uint64_t>();
  made.singleNumber = floating<float>(input);
  made.doubleNumber = floating<double>(input);
  made.level = static_cast<Level>(input.take<std::uint16_t>());
  made.mainColour = static_cast<Colour>(input.count(2));
  for (auto& number : made.triple) number = input.take<std::uint16_t>();
  if (input.flag()) made.maybeNumber = input.take<std::int32_t>();
  if (input.flag()) made.maybePoint = point(input);
}

void fillContainers(Input& input, Everything& made) {
  for (auto rest = input.count(4); rest > 0; --rest)
    made.gappedTexts.push_back(input.flag() ? std::optional(text(input)) : std::nullopt);
  for (auto rest = input.count(9); rest > 0; --rest) made.flags.push_back(input.flag());
  for (auto rest = input.count(4); rest > 0; --rest) made.points.push_back(point(input));
  for (auto rest = input.count(4); rest > 0; --rest)
    made.numbersByName[text(input)].push_back(input.take<std::int64_t>());
  for (auto rest = input.count(4); rest > 0; --rest) made.pointsByName[text(input)] = point(input);
  for (auto rest = input.count(4); rest > 0; --rest) made.names.insert(text(input));
  switch (input.count(2)) {
    case 0:
      made.choice = input.take<std::int64_t>();
      break;
    case 1:
      made.choice = text(input);
      break;
    default:
      made.choice = std::vector{floating<double>(input), floating<double>(input)};
  }
  if (!input.isOver()) made.anything = value(input, 6);
  // A null that stands there and a key that is missing read alike.
  if (made.anything && made.anything->isNull()) made.anything.reset();
}

void fillFoundation(Input& input, Everything& made) {
  made.plainText = text(input);
  if (input.flag()) made.homePage = URL("https://example.com/" + std::to_string(input.take<int>()));
  made.identifier = UUID(input.take<UUID::Bytes>());
  made.content = Data(text(input));
  // The years 1 to 9999, which every strategy has a form for; in this range a double of seconds is
  // exact to the microsecond for some 250 years.
  constexpr std::int64_t firstSecond = -62'135'596'800, lastSecond = 253'402'300'799;
  constexpr std::int64_t exactSeconds = 7'500'000'000;
  const auto reduced = [](std::int64_t number, std::int64_t least, std::int64_t most) {
    return least + static_cast<std::int64_t>(static_cast<std::uint64_t>(number) %
                                             static_cast<std::uint64_t>(most - least + 1));
  };
  using namespace std::chrono;
  made.changedAt = JSONDate(microseconds(
      reduced(input.take<std::int64_t>(), -exactSeconds * 1'000'000, exactSeconds * 1'000'000)));
  made.madeOn = sys_seconds(seconds(reduced(input.take<std::int64_t>(), firstSecond, lastSecond)));
  made.delay = milliseconds(input.take<std::int32_t>());
}

struct Format {
  JSONEncoder encoder;
  JSONDecoder decoder;
};

Format format(Input& input) {
  Format made;
  made.encoder.outputFormatting = {.sortedKeys = input.flag(), .prettyPrinted = input.flag()};
  if (input.flag()) {
    made.encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
    made.decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
  }
  switch (input.count(3)) {
    case 0:
      break;
    case 1:
      made.encoder.dateEncodingStrategy = JSONEncoder::secondsSince1970;
      made.decoder.dateDecodingStrategy = JSONDecoder::secondsSince1970;
      break;
    case 2:
      made.encoder.dateEncodingStrategy = JSONEncoder::millisecondsSince1970;
      made.decoder.dateDecodingStrategy = JSONDecoder::millisecondsSince1970;
      break;
    default:
      made.encoder.dateEncodingStrategy = JSONEncoder::iso8601;
      made.decoder.dateDecodingStrategy = JSONDecoder::iso8601;
  }
  return made;
}

template <class T>
void check(const T& made, const Format& format) {
  const Data json = format.encoder.encode(made);
  const T read = format.decoder.decode<T>(json);
  require(read == made, "a value reads back as it was");
  // Else the order of an unordered_map comes to light.
  if (format.encoder.outputFormatting.sortedKeys)
    require(format.encoder.encode(read).view() == json.view(), "equal values are written alike");
}

/// Also numbers that are not finite, with their signs.
void checkFloats(Input& input, Format format) {
  format.encoder.nonConformingFloats = format.decoder.nonConformingFloats = {"+", "-", "none"};
  const auto number = std::bit_cast<double>(input.take<std::uint64_t>());
  const auto read = format.decoder.decode<double>(format.encoder.encode(number));
  const bool isSame = std::bit_cast<std::uint64_t>(read) == std::bit_cast<std::uint64_t>(number);
  require(isSame || (std::isnan(read) && std::isnan(number)), "a number reads back to the bit");
}

}  // namespace

void fuzzOne(std::span<const std::uint8_t> bytes) {
  Input input(bytes);
  const Format chosen = format(input);
  checkFloats(input, chosen);
  Everything made;
  fillNumbers(input, made);
  fillFoundation(input, made);
  fillContainers(input, made);
  check(made, chosen);
  check(std::vector<Everything>{made, Everything()}, chosen);
}

}  // namespace tarn::fuzz

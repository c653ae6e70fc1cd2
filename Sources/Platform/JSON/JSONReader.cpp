#include <Platform/JSON/Detail/NumberText.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/Detail/StringText.hpp>
#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONReader.hpp>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <utility>

namespace tarn {
namespace {

constexpr std::string_view whiteSpace = " \t\n\r";

// What failed attempts of variants inside each other may read again, in tokens: without a bound
// each level doubles the time. Sixteen readings of the document leave room for trees whose every
// node is tried, the constant for chains, where a level is read again for each one above it.
std::size_t mostReadAgain(std::size_t tokenCount) { return 16 * tokenCount + (1U << 20); }

}  // namespace

JSONReader::JSONReader(std::string_view text, std::span<const std::uint32_t> tokens,
                       const JSONDecoder& decoder) noexcept
    : text_(text),
      token_(tokens.data()),
      value_(tokens.data()),
      decoder_(decoder),
      readableAgain_(mostReadAgain(tokens.size())) {}

JSONReader::Kind JSONReader::kind() const {
  switch (current()) {
    case '{':
      return Kind::object;
    case '[':
      return Kind::array;
    case '"':
      return Kind::string;
    case 't':
    case 'f':
      return Kind::boolean;
    case 'n':
      return Kind::null;
    case '-':
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
      return Kind::number;
    default:
      failSyntax("a value");
  }
}

std::string_view JSONReader::scalar() const noexcept {
  return token().substr(0, token().find_first_of(whiteSpace));
}

inline bool JSONReader::goesOn(std::size_t size) const noexcept {
  return token().size() > size && whiteSpace.find(token()[size]) == whiteSpace.npos;
}

inline bool JSONReader::takeWord(std::string_view word) noexcept {
  if (!token().starts_with(word) || goesOn(word.size())) return false;
  ++token_;
  return true;
}

inline bool JSONReader::takeKey(std::string_view text) noexcept {
  const std::string_view rest(text_.data() + *token_, text_.size() - *token_);
  if (text.empty() || !rest.starts_with(text)) return false;
  token_ += 2;
  return true;
}

bool JSONReader::null() {
  if (current() != 'n') return false;
  if (!takeWord("null")) failSyntax("a value");
  return true;
}

bool JSONReader::boolean() {
  if (takeWord("true")) return true;
  if (takeWord("false")) return false;
  if (kind() == Kind::boolean) failSyntax("a value");
  failExpecting("true or false");
}

inline detail::Number JSONReader::takeNumber() {
  detail::Number number;
  if (!number.read(token()) || goesOn(number.text.size())) {
    if (kind() != Kind::number) failExpecting("a number");
    failSyntax("a number");
  }
  ++token_;
  return number;
}

std::int64_t JSONReader::signedInteger(std::int64_t least, std::int64_t greatest) {
  const auto number = takeNumber();
  const auto value = detail::wholeNumber<std::int64_t>(number);
  if (value && *value >= least && *value <= greatest) return *value;
  failCorrupted("expected a whole number from " + std::to_string(least) + " to " +
                std::to_string(greatest) + ", found " + detail::shortened(number.text));
}

std::uint64_t JSONReader::unsignedInteger(std::uint64_t greatest) {
  const auto number = takeNumber();
  const auto value = detail::wholeNumber<std::uint64_t>(number);
  if (value && *value <= greatest) return *value;
  failCorrupted("expected a whole number from 0 to " + std::to_string(greatest) + ", found " +
                detail::shortened(number.text));
}

template <class T>
void JSONReader::readFloat(T& value) {
  const auto& texts = decoder_.nonConformingFloats;
  if (texts && kind() == Kind::string) {
    const auto text = string();
    constexpr T infinity = std::numeric_limits<T>::infinity();
    if (text == texts->positiveInfinity) return void(value = infinity);
    if (text == texts->negativeInfinity) return void(value = -infinity);
    if (text == texts->nan) return void(value = std::numeric_limits<T>::quiet_NaN());
    failCorrupted("expected a number, found the string " + detail::quoted(text));
  }
  const auto number = takeNumber();
  const auto read = detail::floatingPoint<T>(number);
  if (!read) failCorrupted("the number " + detail::shortened(number.text) + " is out of range");
  value = *read;
}

void JSONReader::readFloatingPoint(float& value) { readFloat(value); }
void JSONReader::readFloatingPoint(double& value) { readFloat(value); }

inline std::string_view JSONReader::stringContent() const noexcept {
  // Between the closing quote and the next token there is only white space.
  std::size_t end = token().size() - 1;
  while (token()[end] != '"') --end;
  return token().substr(1, end - 1);
}

inline std::string_view JSONReader::takeString() {
  if (current() != '"') failExpecting("a string");
  const auto content = stringContent();
  ++token_;
  return content;
}

void JSONReader::appendUnescaped(std::string& result, std::string_view escaped) {
  if (detail::appendUnescaped(result, escaped)) return;
  failCorrupted("the string \"" + detail::shortened(escaped) +
                "\" has a malformed escape sequence");
}

std::string JSONReader::string() {
  std::string value;
  string(value);
  return value;
}

void JSONReader::string(std::string& value) {
  const auto content = takeString();
  if (!detail::isEscaped(content)) return void(value.assign(content));
  value.clear();
  appendUnescaped(value, content);
}

std::string_view JSONReader::text() {
  const std::size_t start = *token_;
  skip();
  const auto value = text_.substr(start, *token_ - start);
  // Up to the next token there is only white space, and a comma or bracket is one of its own.
  return value.substr(0, value.find_last_not_of(whiteSpace) + 1);
}

void JSONReader::skip() {
  switch (const Kind kind = this->kind()) {
    case Kind::null:
      null();
      break;
    case Kind::boolean:
      boolean();
      break;
    case Kind::number:
      takeNumber();
      break;
    case Kind::string: {
      const auto content = takeString();
      if (!detail::isEscaped(content)) break;
      std::string unescaped;
      appendUnescaped(unescaped, content);
      break;
    }
    case Kind::array:
    case Kind::object: {
      Nesting nesting(*this, kind);
      while (nesting.next()) skip();
      break;
    }
  }
}

JSONReader::Attempt::Attempt(JSONReader& reader) : reader_(reader), start_(reader.token_) {
  if (reader.readableAgain_ == 0) reader.failTooManyAttempts();
  ++reader.attempts_;
}

void JSONReader::Attempt::fail() {
  reader_.goBack(start_);
  reader_.chargeReading(reader_.depth_);  // the error's path costs as much
  if (reader_.readableAgain_ == 0) reader_.failTooManyAttempts();
}

void JSONReader::goBack(Position place) noexcept {
  chargeReading(static_cast<std::size_t>(token_ - place));
  token_ = place;
}

void JSONReader::chargeReading(std::size_t count) noexcept {
  // What the outermost attempts read again grows with the number of alternatives alone.
  if (attempts_ > 1) readableAgain_ -= std::min(readableAgain_, count);
}

void JSONReader::failTooManyAttempts() { failCorrupted("too many alternatives were tried"); }

JSONReader::Nesting::Nesting(JSONReader& reader, Kind kind)
    : reader_(reader), start_(reader.token_) {
  const bool isArray = kind == Kind::array;
  if (reader.current() != (isArray ? '[' : '{'))
    reader.failExpecting(isArray ? "an array" : "an object");
  if (reader.depth_ == reader.decoder_.maximumDepth)
    reader.failCorrupted("more than " + std::to_string(reader.depth_) +
                         " objects and arrays are inside each other");
  frame_.outer = reader.frame_;
  frame_.isIndex = isArray;
  ++reader.depth_;
  ++reader.token_;
}

JSONReader::Nesting::~Nesting() {
  if (isOpen_) reader_.goBack(start_);
  reader_.frame_ = frame_.outer;
  reader_.value_ = start_;
  --reader_.depth_;
}

/// Past the comma, or past the closing bracket: false then.
inline bool JSONReader::Nesting::goOn(bool isArray) {
  if (reader_.current() == (isArray ? ']' : '}')) {
    ++reader_.token_;
    reader_.frame_ = frame_.outer;
    reader_.value_ = start_;
    isOpen_ = false;
    return false;
  }
  if (isStarted_) {
    if (reader_.current() != ',') reader_.failSyntax(isArray ? R"("," or "]")" : R"("," or "}")");
    ++reader_.token_;
    ++frame_.index;
  }
  isStarted_ = true;
  return true;
}

inline void JSONReader::Nesting::faceValue() noexcept {
  reader_.frame_ = &frame_;
  reader_.value_ = reader_.token_;
}

bool JSONReader::Nesting::next() {
  if (!goOn(frame_.isIndex)) return false;
  if (!frame_.isIndex) readKey();
  faceValue();
  return true;
}

inline bool JSONReader::Nesting::next(std::string_view expected) {
  if (!goOn(false)) return false;
  isExpected_ = reader_.takeKey(expected);
  if (isExpected_)
    frame_.key = expected.substr(1, expected.size() - 3);
  else
    readKey();
  faceValue();
  return true;
}

void JSONReader::Nesting::readKey() {
  if (reader_.current() != '"') reader_.failSyntax("a key");
  frame_.key = reader_.takeString();
  if (detail::isEscaped(frame_.key)) {
    unescapedKey_.clear();
    reader_.appendUnescaped(unescapedKey_, frame_.key);
    frame_.key = unescapedKey_;
  }
  if (reader_.current() != ':') reader_.failSyntax(R"(":")");
  ++reader_.token_;
}

std::string JSONReader::describedString() const {
  return "the string \"" + detail::shortened(stringContent()) + '"';
}

void JSONReader::failExpecting(std::string_view what) const {
  const auto expected = "expected " + std::string(what) + ", found ";
  switch (kind()) {
    case Kind::null:
      throw DecodingError::valueNotFound(codingPath(), expected + "null");
    case Kind::array:
      throw DecodingError::typeMismatch(codingPath(), expected + "an array");
    case Kind::object:
      throw DecodingError::typeMismatch(codingPath(), expected + "an object");
    case Kind::boolean:
      throw DecodingError::typeMismatch(codingPath(), expected + detail::shortened(scalar()));
    case Kind::number:
      throw DecodingError::typeMismatch(codingPath(),
                                        expected + "the number " + detail::shortened(scalar()));
    case Kind::string:
      throw DecodingError::typeMismatch(codingPath(), expected + describedString());
  }
  std::abort();  // never reached
}

void JSONReader::failCorrupted(std::string reason) {
  goBack(value_);
  throw DecodingError::dataCorrupted(codingPath(), std::move(reason));
}

void JSONReader::failMissing(std::string_view key) {
  goBack(value_);
  throw DecodingError::keyNotFound(std::string(key), codingPath());
}

void JSONReader::failSyntax(std::string_view expected) const {
  const auto before = text_.substr(0, *token_);
  const auto line = std::ranges::count(before, '\n') + 1;
  const auto lineStart = before.substr(before.rfind('\n') + 1);  // npos + 1 is the text's start
  const auto column = 1 + std::ranges::count_if(lineStart, [](char c) {
                        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
                      });
  const auto found = atEnd()            ? "the end of the text"
                     : current() == '"' ? describedString()
                                        : detail::quoted(scalar());
  throw DecodingError::dataCorrupted(
      codingPath(), "expected " + std::string(expected) + ", found " + found + " (line " +
                        std::to_string(line) + ", column " + std::to_string(column) + ')');
}

namespace detail {
namespace {

/// Looks from `first` on, then from the start; the number of members where there is none.
std::size_t find(std::string_view key, std::string_view converted,
                 std::span<const DecodedMember> members, std::size_t first) {
  const auto isNamed = [&](const DecodedMember& member) {
    return member.key == (member.isKeyGiven ? key : converted);
  };
  const auto find = [&](std::size_t from, std::size_t to) {
    while (from < to && !isNamed(members[from])) ++from;
    return from;
  };
  const auto index = find(first, members.size());
  if (index < members.size()) return index;
  const auto earlier = find(0, first);
  return earlier < first ? earlier : members.size();
}

}  // namespace

void decodeMembers(JSONReader& reader, void* object, std::span<const DecodedMember> members) {
  const auto& strategy = reader.decoder().keyDecodingStrategy;
  std::array<bool, mostMembers> seen{};
  std::string converted;
  std::size_t next = 0;  // members mostly come as they are declared
  const auto expected = [&] {
    return !strategy && next < members.size() ? members[next].text : std::string_view();
  };
  JSONReader::Nesting nesting(reader, JSONReader::Kind::object);
  while (nesting.next(expected())) {
    auto index = next;
    if (!nesting.isExpected()) {
      const auto key = nesting.key();
      if (strategy) converted = strategy(key);
      index = find(key, strategy ? std::string_view(converted) : key, members, next);
    }
    if (index == members.size()) {
      reader.skip();
      continue;
    }
    const auto value = reader.token_;
    members[index].decode(reader, object, seen[index]);
    if (reader.token_ == value) reader.skip();
    seen[index] = true;
    next = index + 1;
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (seen[i]) continue;
    if (members[i].isRequired) reader.failMissing(members[i].key);
    if (members[i].clear) members[i].clear(object);
  }
}

}  // namespace detail
}  // namespace tarn

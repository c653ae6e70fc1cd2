#include <Platform/JSON/Detail/NumberText.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/Detail/StringText.hpp>
#include <Platform/JSON/Detail/Words.hpp>
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

// Word by word, of which the last may overlap; at least four characters.
inline bool isEqual(const char* a, const char* b, std::size_t size) noexcept {
  using detail::load, detail::Word;
  using Half = std::uint32_t;
  if (size < sizeof(Word))
    return load<Half>(a) == load<Half>(b) &&
           load<Half>(a + size - sizeof(Half)) == load<Half>(b + size - sizeof(Half));
  for (std::size_t i = 0; i + sizeof(Word) < size; i += sizeof(Word))
    if (load<Word>(a + i) != load<Word>(b + i)) return false;
  return load<Word>(a + size - sizeof(Word)) == load<Word>(b + size - sizeof(Word));
}

}  // namespace

JSONReader::JSONReader(std::string_view text, std::span<const std::uint32_t> tokens,
                       const JSONDecoder& decoder) noexcept
    : text_(text),
      plain_(text.substr(0, 0)),
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

inline const detail::DecodedMember* JSONReader::takeKey(
    const detail::DecodedMember* first, const detail::DecodedMember* last) noexcept {
  if (token_[1] == text_.size()) return nullptr;
  // The colon, where it is one, stands right behind the quotes.
  const std::string_view text(text_.data() + *token_, token_[1] + 1 - *token_);
  for (; first != last; ++first) {
    if (first->text.size() != text.size()) continue;
    if (!isEqual(first->text.data(), text.data(), text.size())) continue;
    token_ += 2;
    return first;
  }
  return nullptr;
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
  const detail::Number number(token());
  if (number.text.empty() || goesOn(number.text.size())) failNumber();
  ++token_;
  return number;
}

std::int64_t JSONReader::signedInteger(std::int64_t least, std::int64_t greatest) {
  const auto number = takeNumber();
  std::int64_t value = 0;
  if (detail::wholeNumber(number, value) && value >= least && value <= greatest) return value;
  failOutside(least, greatest, number.text);
}

std::uint64_t JSONReader::unsignedInteger(std::uint64_t greatest) {
  const auto number = takeNumber();
  std::uint64_t value = 0;
  if (detail::wholeNumber(number, value) && value <= greatest) return value;
  failOutside(std::uint64_t{0}, greatest, number.text);
}

template <class T>
void JSONReader::readFloat(T& value) {
  if (decoder_.nonConformingFloats && kind() == Kind::string) return readNonConforming(value);
  const auto number = takeNumber();
  if (!detail::floatingPoint(number, value)) failOutOfRange(number.text);
}

template <class T>
void JSONReader::readNonConforming(T& value) {
  const auto& texts = *decoder_.nonConformingFloats;
  const auto text = string();
  constexpr T infinity = std::numeric_limits<T>::infinity();
  if (text == texts.positiveInfinity) return void(value = infinity);
  if (text == texts.negativeInfinity) return void(value = -infinity);
  if (text == texts.nan) return void(value = std::numeric_limits<T>::quiet_NaN());
  failCorrupted("expected a number, found the string " + detail::quoted(text));
}

void JSONReader::readFloatingPoint(float& value) { readFloat(value); }
void JSONReader::readFloatingPoint(double& value) { readFloat(value); }

inline std::string_view JSONReader::stringContent() const noexcept {
  // Between the closing quote and the next token there is only white space.
  const auto token = this->token();
  std::size_t end = token.size() - 1;
  while (token[end] != '"') --end;
  return {token.data() + 1, end - 1};
}

inline std::string_view JSONReader::takeString() {
  if (current() != '"') failExpecting("a string");
  const auto content = stringContent();
  ++token_;
  return content;
}

inline bool JSONReader::isEscaped(std::string_view content) noexcept {
  const char* const end = content.data() + content.size();
  const bool isPlain = content.data() >= plain_.data() && end <= plain_.data() + plain_.size();
  return !isPlain && searchEscape(content);
}

// One search serves the strings of a page.
bool JSONReader::searchEscape(std::string_view content) noexcept {
  constexpr std::size_t page = 4096;
  const auto start = static_cast<std::size_t>(content.data() - text_.data());
  plain_ = text_.substr(start, std::max(content.size(), page));
  plain_ = plain_.substr(0, plain_.find('\\'));
  return plain_.size() < content.size();
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
  if (!isEscaped(content)) return void(value.assign(content));
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
      if (!isEscaped(content)) break;
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

void JSONReader::failTooDeep() {
  failCorrupted("more than " + std::to_string(depth_) +
                " objects and arrays are inside each other");
}

void JSONReader::failTooManyAttempts() { failCorrupted("too many alternatives were tried"); }

JSONReader::Nesting::Nesting(JSONReader& reader, Kind kind)
    : reader_(reader), start_(reader.token_) {
  const bool isArray = kind == Kind::array;
  if (reader.current() != (isArray ? '[' : '{'))
    reader.failExpecting(isArray ? "an array" : "an object");
  if (reader.depth_ == reader.decoder_.maximumDepth) reader.failTooDeep();
  frame_.outer = reader.frame_;
  frame_.isIndex = isArray;
  ++reader.depth_;
}

JSONReader::Nesting::~Nesting() {
  if (isOpen_) reader_.goBack(start_);
  reader_.frame_ = frame_.outer;
  reader_.value_ = start_;
  --reader_.depth_;
}

/// Past the opening bracket or the comma, or past the closing bracket: false then.
inline bool JSONReader::Nesting::goOn(bool isArray) {
  if (reader_.current() == ',') {
    ++reader_.token_;
    ++frame_.index;
    return true;
  }
  const bool isFirst = reader_.token_ == start_;
  if (isFirst) ++reader_.token_;
  const bool isLast = reader_.current() == (isArray ? ']' : '}');
  if (!isLast) {
    if (isFirst) return true;
    reader_.failSyntax(isArray ? R"("," or "]")" : R"("," or "}")");
  }
  ++reader_.token_;
  reader_.frame_ = frame_.outer;
  reader_.value_ = start_;
  isOpen_ = false;
  return false;
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

inline bool JSONReader::Nesting::next(const detail::DecodedMember*& member,
                                      const detail::DecodedMember* last) {
  if (!goOn(false)) return false;
  member = reader_.takeKey(member, last);
  if (member != nullptr)
    frame_.key = member->key;
  else
    readKey();
  faceValue();
  return true;
}

void JSONReader::Nesting::readKey() {
  if (reader_.current() != '"') reader_.failSyntax("a key");
  frame_.key = reader_.takeString();
  if (reader_.isEscaped(frame_.key)) {
    if (!unescapedKey_) unescapedKey_ = std::make_unique<std::string>();
    unescapedKey_->clear();
    reader_.appendUnescaped(*unescapedKey_, frame_.key);
    frame_.key = *unescapedKey_;
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

void JSONReader::failNumber() const {
  if (kind() != Kind::number) failExpecting("a number");
  failSyntax("a number");
}

template <class T>
void JSONReader::failOutside(T least, T greatest, std::string_view found) {
  failCorrupted("expected a whole number from " + std::to_string(least) + " to " +
                std::to_string(greatest) + ", found " + detail::shortened(found));
}

void JSONReader::failOutOfRange(std::string_view found) {
  failCorrupted("the number " + detail::shortened(found) + " is out of range");
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

/// Looks from `first` on, then from the start; null where there is none.
const DecodedMember* find(std::string_view key, std::string_view converted,
                          std::span<const DecodedMember> members, const DecodedMember* first) {
  const auto isNamed = [&](const DecodedMember& member) {
    return member.key == (member.isKeyGiven ? key : converted);
  };
  const auto* const start = members.data();
  const auto* const last = start + members.size();
  if (const auto* const found = std::find_if(first, last, isNamed); found != last) return found;
  const auto* const found = std::find_if(start, first, isNamed);
  return found == first ? nullptr : found;
}

}  // namespace

void decodeMembers(JSONReader& reader, void* object, std::span<const DecodedMember> members) {
  const auto& strategy = reader.decoder().keyDecodingStrategy;
  std::array<bool, mostMembers> seen;  // as many as there are members
  std::fill_n(seen.begin(), members.size(), false);
  JSONReader::Nesting nesting(reader, JSONReader::Kind::object);
  const auto* const last = members.data() + members.size();
  const auto* next = members.data();  // members mostly come as they are declared
  const bool isConverted = strategy != nullptr;
  while (true) {
    const auto* member = isConverted ? last : next;
    if (!nesting.next(member, last)) break;
    if (member == nullptr) {
      const auto key = nesting.key();
      member =
          isConverted ? find(key, strategy(key), members, next) : find(key, key, members, next);
      if (member == nullptr) {
        reader.skip();
        continue;
      }
    }
    const auto value = reader.token_;
    member->decode(reader, object, seen[member->index]);
    if (reader.token_ == value) reader.skip();
    seen[member->index] = true;
    next = member + 1;
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (seen[i]) continue;
    if (members[i].isRequired) reader.failMissing(members[i].key);
    if (members[i].clear) members[i].clear(object);
  }
}

}  // namespace detail
}  // namespace tarn

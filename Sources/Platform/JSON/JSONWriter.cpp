#include <Platform/JSON/Detail/JSONDocument.hpp>
#include <Platform/JSON/Detail/JSONText.hpp>
#include <Platform/JSON/JSONEncoder.hpp>
#include <Platform/JSON/JSONWriter.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace tarn {
namespace {

constexpr std::size_t indentationPerLevel = 2;
static_assert(detail::JSONText::block == detail::keyTextBlock);

}  // namespace

JSONWriter::JSONWriter(const JSONEncoder& encoder, detail::JSONText& text) noexcept
    : encoder_(encoder),
      text_(text),
      isPretty_(encoder.outputFormatting.prettyPrinted),
      isSorted_(encoder.outputFormatting.sortedKeys) {}

void JSONWriter::failInvalid(std::string reason) const {
  throw EncodingError::invalidValue(codingPath(), std::move(reason));
}

void JSONWriter::requireSlot() const {
  if (slot_ == Slot::empty) return;
  if (slot_ == Slot::filled) failInvalid("more than one value was written here");
  failInvalid(innermost_->bracket_ == '{' ? "a value was written outside of a member"
                                          : "a value was written outside of an element");
}

void JSONWriter::null() {
  requireSlot();
  text_.append("null");
  slot_ = Slot::filled;
}

void JSONWriter::boolean(bool value) {
  requireSlot();
  text_.append(value ? std::string_view("true") : std::string_view("false"));
  slot_ = Slot::filled;
}

void JSONWriter::signedInteger(std::int64_t value) {
  requireSlot();
  text_.append(value);
  slot_ = Slot::filled;
}

void JSONWriter::unsignedInteger(std::uint64_t value) {
  requireSlot();
  text_.append(value);
  slot_ = Slot::filled;
}

template <class Float>
void JSONWriter::number(Float value) {
  requireSlot();
  if (std::isfinite(value)) {
    text_.append(value);
    slot_ = Slot::filled;
    return;
  }
  const auto& texts = encoder_.nonConformingFloats;
  if (!texts) failInvalid("the number is not finite");
  string(std::isnan(value) ? texts->nan
         : value > 0       ? texts->positiveInfinity
                           : texts->negativeInfinity);
}

void JSONWriter::floatingPoint(double value) { number(value); }
void JSONWriter::floatingPoint(float value) { number(value); }

void JSONWriter::string(std::string_view text) {
  requireSlot();
  if (!text_.appendString(text)) failInvalid("the text is not UTF-8");
  slot_ = Slot::filled;
}

void JSONWriter::text(std::string_view json) {
  requireSlot();
  if (!detail::isDocument(json, encoder_.maximumDepth - depth_))
    failInvalid("the text is not one JSON value");
  text_.append(json);
  slot_ = Slot::filled;
}

std::string JSONWriter::finish() const {
  if (slot_ != Slot::filled) failInvalid("no value was written");
  return std::string(text_.view());
}

JSONWriter::Nesting::Nesting(JSONWriter& writer, char bracket)
    : writer_(writer),
      outer_(writer.innermost_),
      frame_{.outer = writer.frame_, .key = {}, .index = 0, .isIndex = bracket == '['},
      start_(writer.text_.size()),
      bracket_(bracket) {
  writer.requireSlot();
  if (writer.depth_ >= writer.encoder_.maximumDepth)
    writer.failInvalid("more than " + std::to_string(writer.encoder_.maximumDepth) +
                       " objects and arrays stand inside each other");
  writer.text_.append(bracket);
  writer.innermost_ = this;
  writer.slot_ = Slot::none;
  ++writer.depth_;
}

void JSONWriter::Nesting::takeBack() noexcept {
  writer_.text_.truncate(start_);
  writer_.slot_ = Slot::empty;
  leave();
}

void JSONWriter::Nesting::leave() noexcept {
  isOpen_ = false;
  writer_.innermost_ = outer_;
  writer_.frame_ = frame_.outer;
  --writer_.depth_;
}

void JSONWriter::Nesting::close() {
  if (members_.size() > 1) sortMembers();
  if (writer_.isPretty_ && count_ > 0)
    writer_.text_.appendLine(indentationPerLevel * (writer_.depth_ - 1));
  writer_.text_.append(bracket_ == '{' ? '}' : ']');
  writer_.slot_ = Slot::filled;
  leave();
}

// What stands between two entries is everywhere the same, so that the sorted text has the length of
// the unsorted.
void JSONWriter::Nesting::sortMembers() {
  if (std::ranges::is_sorted(members_, {}, &Member::key)) return;
  const std::string_view text = writer_.text_.view();
  const std::size_t first = members_[0].start;
  const std::string separator(text.substr(members_[0].end, members_[1].start - members_[0].end));
  std::ranges::stable_sort(members_, {}, &Member::key);
  std::string sorted;
  sorted.reserve(text.size() - first);
  for (const Member& member : members_) {
    if (!sorted.empty()) sorted += separator;
    sorted += text.substr(member.start, member.end - member.start);
  }
  writer_.text_.truncate(first);
  writer_.text_.append(sorted);
}

// Writes what stands in front of a member or an element, and returns its place, with room for
// `count` characters; the text is not finished there yet. (Each time that it is costs a
// nanosecond.)
inline char* JSONWriter::Nesting::beginEntry(std::size_t count) {
  detail::JSONText& text = writer_.text_;
  if (writer_.isPretty_) {
    if (count_ > 0) text.append(',');
    text.appendLine(indentationPerLevel * writer_.depth_);
    return text.room(count);
  }
  char* const out = text.room(1 + count);
  *out = ',';
  return count_ > 0 ? out + 1 : out;
}

inline void JSONWriter::Nesting::beginMember(std::string_view key, std::string_view keyText) {
  detail::JSONText& text = writer_.text_;
  char* const out = beginEntry(detail::JSONText::blockSize(keyText));
  const std::size_t start = text.offset(out);
  if (!keyText.empty()) {
    text.finishBlocks(out, keyText);
  } else {
    text.finish(out);
    if (!text.appendString(key)) writer_.failInvalid("a key is not UTF-8");
    text.append(':');
  }
  if (writer_.isPretty_) text.append(' ');
  if (writer_.isSorted_) members_.push_back({std::string(key), start, start});
  frame_.key = key;
  writer_.frame_ = &frame_;
  writer_.slot_ = Slot::empty;
}

inline void JSONWriter::Nesting::beginElement() {
  writer_.text_.finish(beginEntry(0));
  frame_.index = count_;
  writer_.frame_ = &frame_;
  writer_.slot_ = Slot::empty;
}

void JSONWriter::Nesting::endEntry() {
  if (writer_.slot_ != Slot::filled) writer_.failInvalid("no value was written");
  ++count_;
  if (!members_.empty()) members_.back().end = writer_.text_.size();
  writer_.frame_ = frame_.outer;
  writer_.slot_ = Slot::none;
}

JSONWriter::Nesting& JSONWriter::nestingFor(char bracket) const {
  if (slot_ != Slot::none || innermost_->bracket_ != bracket)
    failInvalid(bracket == '{' ? "a member was written outside of an object"
                               : "an element was written outside of an array");
  return *innermost_;
}

JSONWriter::Entry::Entry(JSONWriter& writer, char bracket)
    : nesting_(writer.nestingFor(bracket)), start_(writer.text_.size()) {}

// Delegating, so that what these throw is followed by the destructor.
JSONWriter::Entry::Entry(JSONWriter& writer, std::string_view key) : Entry(writer, '{') {
  nesting_.beginMember(key);
}

JSONWriter::Entry::Entry(JSONWriter& writer) : Entry(writer, '[') { nesting_.beginElement(); }

void JSONWriter::Entry::takeBack() noexcept {
  JSONWriter& writer = nesting_.writer_;
  if (nesting_.members_.size() > nesting_.count_) nesting_.members_.pop_back();
  writer.text_.truncate(start_);
  writer.frame_ = nesting_.frame_.outer;
  writer.slot_ = Slot::none;
}

// The keys of a struct by the encoder's strategy, converted once a document.
const std::vector<std::string>& JSONWriter::convertedKeys(
    std::span<const detail::EncodedMember> members) {
  const auto [position, isNew] = convertedKeys_.try_emplace(members.data());
  std::vector<std::string>& keys = position->second;
  if (keys.size() < members.size()) {
    keys.clear();
    for (const auto& member : members)
      keys.push_back(member.isKeyGiven ? std::string(member.key)
                                       : encoder_.keyEncodingStrategy(member.key));
  }
  return keys;
}

namespace detail {

void encodeMembers(JSONWriter& writer, const void* object, std::span<const EncodedMember> members) {
  const std::vector<std::string>* const keys =
      writer.encoder().keyEncodingStrategy ? &writer.convertedKeys(members) : nullptr;
  JSONWriter::Nesting nesting(writer, '{');
  for (std::size_t i = 0; i < members.size(); ++i) {
    const EncodedMember& member = members[i];
    if (member.isAbsent && member.isAbsent(object)) continue;
    // Without an Entry: nobody between here and the object could catch what ends a member.
    if (keys)
      nesting.beginMember((*keys)[i]);
    else
      nesting.beginMember(member.key, member.text);
    member.encode(writer, object);
    nesting.endEntry();
  }
  nesting.close();
}

std::string encodeDocument(const JSONEncoder& encoder, void (*encode)(JSONWriter&, const void*),
                           const void* value) {
  JSONText text;
  JSONWriter writer(encoder, text);
  encode(writer, value);
  return writer.finish();
}

}  // namespace detail
}  // namespace tarn

#include <Platform/URLLoading/Curl/HeadParser.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>

#include <algorithm>
#include <charconv>
#include <utility>

namespace tarn::detail {

namespace {

// Over one answer, interim heads and trailers included: enough for any honest server, too little to
// exhaust memory.
constexpr std::size_t mostLines = 5000;
constexpr std::size_t mostBytes = 1024 * 1024;

// libcurl takes "5abc", "+5" and numbers that overflow; two readers of one message must not differ
// on its length.
std::optional<std::int64_t> strictLength(std::string_view text) noexcept {
  constexpr std::size_t mostDigits = 19;
  if (text.empty() || text.size() > mostDigits) return std::nullopt;
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  std::int64_t length = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  return error == std::errc() ? std::optional(length) : std::nullopt;
}

}  // namespace

HeadParser::Event HeadParser::line(std::string_view text) {
  bytes_ += text.size();
  if (++lines_ > mostLines || bytes_ > mostBytes) return refuse("too many header lines");
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  if (complete_) return Event::none;
  if (!block_) return startBlock(text);
  if (text.empty()) return endBlock();
  return addField(text);
}

std::optional<std::int64_t> HeadParser::announcedLength() const noexcept {
  return transferCoded_ ? std::nullopt : contentLength_;
}

bool HeadParser::bodyEndsWithConnection() const noexcept {
  return !contentLength_ && !transferCoded_ && httpVersion_.starts_with("HTTP/1.");
}

HeadParser::Event HeadParser::startBlock(std::string_view line) {
  if (!line.starts_with("HTTP/")) return refuse("the answer does not begin with a status line");
  started_ = true;
  block_ = std::make_unique<HeaderFieldsBuilder>();
  mayFold_ = false;
  contentLength_.reset();
  const auto versionEnd = std::min(line.find(' '), line.size());
  httpVersion_ = line.substr(0, versionEnd);
  const auto rest = trimmed(line.substr(versionEnd));
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), statusCode_);
  if (error != std::errc()) return refuse("the status line has no status");
  return Event::none;
}

HeadParser::Event HeadParser::endBlock() {
  const auto block = std::exchange(block_, nullptr);
  // Nobody asked to switch protocols, and what would follow is not HTTP.
  if (statusCode_ == 101) return refuse("the server switched protocols unasked");
  if (statusCode_ < 200) return Event::none;
  fields_ = block->take();
  transferCoded_ = fields_.contains("Transfer-Encoding");
  complete_ = true;
  return Event::headComplete;
}

HeadParser::Event HeadParser::addField(std::string_view line) {
  if (isBlank(line.front())) {
    if (mayFold_) {
      block_->extend(" ");
      block_->extend(trimmed(line));
    }
    return Event::none;
  }
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return refuse("a header line has no colon");
  const auto name = trimmed(line.substr(0, colon));
  const auto value = trimmed(line.substr(colon + 1));
  const bool isLength = equalsIgnoringCase(name, "Content-Length");
  mayFold_ = !name.empty() && !isLength;
  if (isLength) {
    const auto length = strictLength(value);
    if (!length) return refuse("Content-Length is not a number");
    if (contentLength_ && contentLength_ != length) return refuse("two Content-Lengths differ");
    if (!contentLength_) block_->add(name, value);
    contentLength_ = length;
  } else if (!name.empty()) {
    block_->add(name, value);
  }
  return Event::none;
}

HeadParser::Event HeadParser::refuse(const char* reason) noexcept {
  refusal_ = reason;
  return Event::refused;
}

}  // namespace tarn::detail

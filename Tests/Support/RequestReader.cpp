#include <Support/RequestReader.hpp>

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace tarn::test {
namespace {

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// Up to `separator`, which goes with it; the whole text when there is none.
std::string_view takeUntil(std::string_view& text, std::string_view separator) {
  const auto end = text.find(separator);
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + separator.size());
  return taken;
}

}  // namespace

std::string ReceivedRequest::path() const { return target.substr(0, target.find('?')); }

std::optional<std::string> ReceivedRequest::header(std::string_view name) const {
  const auto found = std::find_if(headers.begin(), headers.end(),
                                  [&](const auto& field) { return sameName(field.first, name); });
  return found == headers.end() ? std::nullopt : std::optional(found->second);
}

std::vector<std::string> ReceivedRequest::headerValues(std::string_view name) const {
  std::vector<std::string> values;
  for (const auto& [key, value] : headers) {
    if (sameName(key, name)) values.push_back(value);
  }
  return values;
}

namespace detail {
namespace {

constexpr std::size_t longestHead = 16 << 20;

void parseHead(ReceivedRequest& request) {
  std::string_view text = request.rawHead;
  std::string_view line = takeUntil(text, "\r\n");
  request.method = takeUntil(line, " ");
  const auto lastSpace = line.rfind(' ');
  request.target = line.substr(0, lastSpace);
  if (lastSpace != std::string_view::npos) request.version = line.substr(lastSpace + 1);
  for (line = takeUntil(text, "\r\n"); !line.empty(); line = takeUntil(text, "\r\n")) {
    const std::string_view name = takeUntil(line, ":");
    request.headers.emplace_back(name, trimmed(line));
  }
}

}  // namespace

RequestReader::Progress RequestReader::takeHead(ReceivedRequest& request) {
  static constexpr std::string_view blankLine = "\r\n\r\n";
  const auto end = buffer_.find(blankLine, searched_);
  if (end == std::string::npos) {
    searched_ = buffer_.size() < blankLine.size() ? 0 : buffer_.size() - (blankLine.size() - 1);
    return buffer_.size() > longestHead ? Progress::failed : Progress::needsMore;
  }
  request.rawHead = buffer_.substr(0, end + blankLine.size());
  buffer_.erase(0, request.rawHead.size());
  searched_ = 0;
  parseHead(request);
  chooseFraming(request);
  return Progress::done;
}

void RequestReader::chooseFraming(const ReceivedRequest& request) {
  framing_ = Framing::none;
  rest_ = 0;
  if (const auto coding = request.header("Transfer-Encoding");
      coding && sameName(*coding, "chunked")) {
    framing_ = Framing::chunked;
  } else if (const auto length = request.header("Content-Length")) {
    std::from_chars(length->data(), length->data() + length->size(), rest_);
    if (rest_ > 0) framing_ = Framing::length;
  }
}

RequestReader::Progress RequestReader::takeBody(ReceivedRequest& request) {
  switch (framing_) {
    case Framing::none:
      return Progress::done;
    case Framing::chunked:
      return takeChunks(request.body);
    case Framing::length:
      break;
  }
  const std::size_t taken = std::min(rest_, buffer_.size());
  request.body.append(buffer_, 0, taken);
  buffer_.erase(0, taken);
  rest_ -= taken;
  if (rest_ > 0) return Progress::needsMore;
  framing_ = Framing::none;
  return Progress::done;
}

RequestReader::Progress RequestReader::takeChunks(std::string& body) {
  for (;;) {
    const auto lineEnd = buffer_.find("\r\n");
    if (lineEnd == std::string::npos) return Progress::needsMore;
    std::size_t size = 0;
    const auto parsed = std::from_chars(buffer_.data(), buffer_.data() + lineEnd, size, 16);
    if (parsed.ec != std::errc() || size > buffer_.max_size() / 2) return Progress::failed;
    const std::size_t start = lineEnd + 2;
    if (size == 0) {
      // Trailers end with a blank line; without any, the blank line follows at once.
      const auto end = buffer_.find("\r\n\r\n", lineEnd);
      if (end == std::string::npos) return Progress::needsMore;
      buffer_.erase(0, end + 4);
      framing_ = Framing::none;
      return Progress::done;
    }
    if (buffer_.size() < start + size + 2) return Progress::needsMore;
    body.append(buffer_, start, size);
    buffer_.erase(0, start + size + 2);
  }
}

bool asksToClose(const ReceivedRequest& request) {
  const std::string connection = request.header("Connection").value_or("");
  if (sameName(connection, "close")) return true;
  return request.version == "HTTP/1.0" && !sameName(connection, "keep-alive");
}

}  // namespace detail
}  // namespace tarn::test

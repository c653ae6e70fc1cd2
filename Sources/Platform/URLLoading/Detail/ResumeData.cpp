#include <Platform/URLLoading/Detail/DownloadFile.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/HTTPDate.hpp>
#include <Platform/URLLoading/Detail/ResumeData.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>

#include <algorithm>
#include <array>
#include <charconv>

namespace tarn::detail {

namespace {

constexpr std::string_view firstLine = "TarnDownload 1";
constexpr std::size_t longestData = 1024 * 1024;

template <class Number>
std::optional<Number> number(std::string_view text) noexcept {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

template <class Number>
std::string text(Number value) {
  std::array<char, 64> buffer;
  const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), error == std::errc() ? end : buffer.data()};
}

// A weak tag says that two bodies mean the same, not that their bytes can be joined.
bool isStrongTag(std::string_view tag) noexcept {
  if (tag.size() < 2 || tag.front() != '"' || tag.back() != '"') return false;
  tag = tag.substr(1, tag.size() - 2);
  return std::all_of(tag.begin(), tag.end(), [](char c) {
    return c != '"' && c != 0x7F && static_cast<unsigned char>(c) > 0x20;
  });
}

bool asksForWhole(const URLRequest& request) {
  return request.httpMethod() == "GET" && (!request.httpBody() || request.httpBody()->empty()) &&
         !request.value("Range") && !request.value("If-Range");
}

/// The lines of encoded data, one after another.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  bool atEnd() const noexcept { return rest_.empty(); }
  /// Nothing where the rest does not end with a line end.
  std::optional<std::string_view> next() noexcept {
    const auto end = rest_.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    const auto line = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return line;
  }
  /// What follows the name on the next line; nothing where that has another name.
  std::optional<std::string_view> value(std::string_view name) noexcept {
    const auto line = next();
    if (!line || !line->starts_with(name) || line->substr(name.size(), 2) != ": ") return {};
    return line->substr(name.size() + 2);
  }
  template <class Number>
  std::optional<Number> numberOf(std::string_view name) noexcept {
    const auto text = value(name);
    return text ? number<Number>(*text) : std::nullopt;
  }

 private:
  std::string_view rest_;
};

// Throws InvalidRequestError for a field that may not go onto the wire.
std::optional<ResumeData> decodeLines(Lines lines) {
  if (lines.next() != firstLine) return std::nullopt;
  const auto file = lines.value("file");
  const auto bytes = lines.numberOf<std::int64_t>("bytes");
  const auto validator = lines.value("validator");
  const auto method = lines.value("method");
  const auto address = lines.value("url");
  const auto timeout = lines.numberOf<double>("timeout");
  const auto cachePolicy = lines.numberOf<int>("cache-policy");
  const auto resend = lines.numberOf<int>("resend");
  const auto url = address ? URL::parse(*address) : std::nullopt;
  if (!url || !file || !DownloadFile::isName(*file) || !bytes || *bytes < 1 || !validator ||
      !(isStrongTag(*validator) || parseHTTPDate(*validator)) || !method || !timeout ||
      !cachePolicy || *cachePolicy < 0 ||
      *cachePolicy > static_cast<int>(URLRequest::CachePolicy::reloadRevalidatingCacheData) ||
      !resend) {
    return std::nullopt;
  }
  URLRequest request(*url, static_cast<URLRequest::CachePolicy>(*cachePolicy),
                     TimeInterval(*timeout));
  request.setHTTPMethod(std::string(*method));
  request.setAllowsResend(*resend != 0);
  while (!lines.atEnd()) {
    const auto field = lines.value("field");
    const auto colon = field ? field->find(": ") : std::string_view::npos;
    if (colon == std::string_view::npos) return std::nullopt;
    request.setValue(std::string(field->substr(colon + 2)), std::string(field->substr(0, colon)));
  }
  if (!asksForWhole(request)) return std::nullopt;
  return ResumeData{std::move(request), std::string(*validator), *bytes, std::string(*file)};
}

}  // namespace

Data ResumeData::encoded() const {
  std::string lines(firstLine);
  const auto add = [&lines](std::string_view name, std::string_view value) {
    lines.append("\n").append(name).append(": ").append(value);
  };
  add("file", file);
  add("bytes", text(byteCount));
  add("validator", validator);
  add("method", request.httpMethod());
  add("url", request.url().absoluteString());
  add("timeout", text(request.timeoutInterval().count()));
  add("cache-policy", text(static_cast<int>(request.cachePolicy())));
  add("resend", text(request.allowsResend() ? 1 : 0));
  for (const auto& [name, value] : request.allHTTPHeaderFields()) add("field", name + ": " + value);
  return Data(std::move(lines.append("\n")));
}

std::optional<ResumeData> ResumeData::decode(const Data& data) {
  if (data.size() > longestData) return std::nullopt;
  try {
    return decodeLines(Lines(data.view()));
  } catch (const InvalidRequestError&) {
    return std::nullopt;
  }
}

URLRequest ResumeData::rangeRequest() const {
  URLRequest ranged = request;
  ranged.setValue("bytes=" + text(byteCount) + "-", "Range");
  ranged.setValue(validator, "If-Range");
  return ranged;
}

std::optional<std::string> resumeValidator(const URLRequest& request,
                                           const HTTPURLResponse& answer) {
  const auto& fields = answer.allHeaderFields();
  const auto coding = fields.value("Content-Encoding");
  if (!asksForWhole(request) || (coding && !equalsIgnoringCase(trimmed(*coding), "identity")) ||
      equalsIgnoringCase(trimmed(fields.value("Accept-Ranges").value_or("")), "none")) {
    return std::nullopt;
  }
  if (const auto tag = fields.value("ETag")) {
    return isStrongTag(*tag) ? std::optional<std::string>(*tag) : std::nullopt;
  }
  // The file could have changed again within the second that the date names.
  const auto modified = fields.value("Last-Modified");
  const auto changed = parseHTTPDate(modified.value_or(""));
  const auto sent = parseHTTPDate(fields.value("Date").value_or(""));
  return changed && sent && *changed < *sent ? std::optional<std::string>(*modified) : std::nullopt;
}

std::optional<ContentRange> ContentRange::parse(std::string_view value) noexcept {
  value = trimmed(value);
  const auto dash = value.find('-');
  const auto slash = value.find('/');
  if (!equalsIgnoringCase(value.substr(0, 6), "bytes ") || dash == std::string_view::npos ||
      slash == std::string_view::npos || slash < dash) {
    return std::nullopt;
  }
  const auto first = number<std::int64_t>(value.substr(6, dash - 6));
  const auto last = number<std::int64_t>(value.substr(dash + 1, slash - dash - 1));
  const auto unknown = value.substr(slash + 1) == "*";
  const auto total =
      unknown ? std::optional<std::int64_t>(-1) : number<std::int64_t>(value.substr(slash + 1));
  if (!first || !last || !total || *first < 0 || *last < *first) return std::nullopt;
  if (!unknown && *total <= *last) return std::nullopt;
  return ContentRange{*first, *last, *total};
}

}  // namespace tarn::detail

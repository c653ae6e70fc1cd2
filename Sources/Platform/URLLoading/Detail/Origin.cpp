#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <string_view>

namespace tarn::detail {

std::optional<Origin> Origin::of(const URL& url) {
  const std::string_view text = url.absoluteString();
  const bool secure = equalsIgnoringCase(text.substr(0, 6), "https:");
  if (!secure && !equalsIgnoringCase(text.substr(0, 5), "http:")) return std::nullopt;
  const auto host = url.host();
  if (!host) return std::nullopt;
  return Origin{secure, lowercased(*host), url.port().value_or(secure ? 443 : 80)};
}

std::string requestTarget(const URL& url) {
  std::string target;
  appendRequestTarget(target, url);
  return target;
}

void appendRequestTarget(std::string& text, const URL& url) {
  // Behind the authority there is no user information.
  std::string_view target = url.absoluteString();
  target.remove_prefix(std::min(target.find("://") + 3, target.size()));
  const auto isEnd = [](char c) { return c == '/' || c == '?' || c == '#'; };
  const auto begin = std::find_if(target.begin(), target.end(), isEnd);
  target.remove_prefix(static_cast<std::size_t>(begin - target.begin()));
  if (!target.starts_with('/')) text.push_back('/');
  text.append(target.substr(0, target.find('#')));
}

}  // namespace tarn::detail

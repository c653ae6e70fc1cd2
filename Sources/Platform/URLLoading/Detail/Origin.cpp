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
  // Behind the authority there is no user information.
  std::string_view text = url.absoluteString();
  text.remove_prefix(std::min(text.find("://") + 3, text.size()));
  const auto begin = std::find_if(text.begin(), text.end(),
                                  [](char c) { return c == '/' || c == '?' || c == '#'; });
  std::string target(begin, std::find(begin, text.end(), '#'));
  if (!target.starts_with('/')) target.insert(0, 1, '/');
  return target;
}

}  // namespace tarn::detail

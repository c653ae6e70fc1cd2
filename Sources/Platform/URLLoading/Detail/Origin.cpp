#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>

#include <algorithm>

namespace tarn::detail {

std::optional<Origin> Origin::of(const URL& url) {
  const auto scheme = url.scheme();
  if (!scheme || (*scheme != "http" && *scheme != "https")) return std::nullopt;
  const auto host = url.host();
  if (!host) return std::nullopt;
  const bool secure = scheme->size() == 5;
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

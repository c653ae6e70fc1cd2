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
  const auto text = url.redacted();
  const auto authority = text.find("://") + 3;
  const auto begin = std::min(text.find_first_of("/?#", authority), text.size());
  const auto target = text.substr(begin, std::min(text.find('#'), text.size()) - begin);
  return target.starts_with('/') ? target : "/" + target;
}

}  // namespace tarn::detail

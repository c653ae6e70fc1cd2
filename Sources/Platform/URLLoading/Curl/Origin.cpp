#include <Platform/URLLoading/Curl/Origin.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>

namespace tarn::detail {

std::optional<Origin> Origin::of(const URL& url) {
  const auto scheme = url.scheme();
  if (!scheme || (*scheme != "http" && *scheme != "https")) return std::nullopt;
  const auto host = url.host();
  if (!host) return std::nullopt;
  const bool secure = scheme->size() == 5;
  return Origin{secure, lowercased(*host), url.port().value_or(secure ? 443 : 80)};
}

}  // namespace tarn::detail

#pragma once

#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <string_view>
#include <variant>

namespace tarn::detail {

/// How many redirects one task follows before it gives up.
inline constexpr int mostRedirects = 16;

/// Whether an answer sends the client elsewhere: 301, 302, 303, 307 or 308 with a Location.
bool isRedirect(int statusCode, const HTTPHeaderFields& fields) noexcept;

/// Whether a header field is meant for its request's own origin: it holds a secret or names the
/// host.
bool belongsToOrigin(std::string_view name) noexcept;

/// The request that follows a redirecting answer to `request`, or why there can be none (RFC
/// 9110, 15.4).
///
/// 303 turns every method but HEAD into GET, 301 and 302 only POST; a method that turns into GET
/// loses its body. Secrets do not cross origins: Authorization, Cookie and Host are dropped there,
/// user information of the target always.
std::variant<URLRequest, URLError> redirectedRequest(const URLRequest& request,
                                                     const HTTPURLResponse& response);

}  // namespace tarn::detail

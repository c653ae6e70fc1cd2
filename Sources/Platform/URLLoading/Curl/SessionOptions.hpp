#pragma once

#include <Platform/URLLoading/Curl/RequestOptions.hpp>
#include <Platform/URLLoading/URLSessionConfiguration.hpp>

#include <map>
#include <string>
#include <vector>

namespace tarn::detail {

/// Throws InvalidRequestError for a header field, InvalidConfigurationError for a socket path or
/// limit that can't be.
void checkConfiguration(const URLSessionConfiguration& configuration);

/// The overrides as libcurl wants them; null for none. Throws InvalidConfigurationError.
HeaderLines resolverLines(const std::map<std::string, std::vector<std::string>>& resolverOverrides);

/// The request with those of the session's fields that it lacks; `elsewhere`: it goes to another
/// origin than the task's own, which shall not see what was meant for that one.
URLRequest withSessionFields(URLRequest request, const URLRequest::HeaderFields& sessionFields,
                             bool elsewhere);

}  // namespace tarn::detail

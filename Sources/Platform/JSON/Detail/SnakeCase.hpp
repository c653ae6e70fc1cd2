#pragma once

#include <string>
#include <string_view>

// Only the letters of ASCII have cases here; other characters stay as they are.
namespace tarn::detail {

/// "firstName" as "first_name". A run of capitals is one word: "myURLProperty" is
/// "my_url_property".
std::string snakeCase(std::string_view name);

/// "first_name" as "firstName". Underscores at either end stay, and a name without any between its
/// words is kept as it is.
std::string camelCase(std::string_view name);

}  // namespace tarn::detail

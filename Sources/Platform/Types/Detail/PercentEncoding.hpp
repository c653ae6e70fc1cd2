#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

/// The parts of a URL, each with its own set of characters that stand for themselves (RFC 3986,
/// appendix A).
enum class URLPart { user, host, path, query, queryItem };

bool isPlain(char character, URLPart part) noexcept;

/// Adds `text` to `target`, with each byte that `part` may not hold as "%XX".
void appendPercentEncoded(std::string& target, std::string_view text, URLPart part);
std::string percentEncoded(std::string_view text, URLPart part);

/// The bytes that `text` stands for; a "%" without two hexadecimal digits stays.
std::string percentDecoded(std::string_view text);

}  // namespace tarn::detail

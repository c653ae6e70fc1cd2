#pragma once

#include <string>
#include <string_view>

namespace tarn::detail {

enum class HashFunction { md5, sha256 };

/// The hash of a text in lower-case hexadecimal digits. Throws std::runtime_error where this
/// machine's policy forbids the function, as it may MD5.
std::string hexDigest(HashFunction function, std::string_view text);

}  // namespace tarn::detail

#include <Platform/Trust/Detail/HexDigest.hpp>
#include <Platform/Trust/Detail/OpenSSLHandles.hpp>

#include <openssl/evp.h>

#include <array>
#include <stdexcept>

namespace tarn::detail {

std::string hexDigest(HashFunction function, std::string_view text) {
  const ErrorQueueScope scope;
  std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
  unsigned int size = 0;
  const EVP_MD* type = function == HashFunction::md5 ? EVP_md5() : EVP_sha256();
  if (EVP_Digest(text.data(), text.size(), hash.data(), &size, type, nullptr) != 1) {
    throw std::runtime_error("The hash function is not available.");
  }
  constexpr std::string_view digits = "0123456789abcdef";
  std::string result;
  for (unsigned int i = 0; i < size; ++i) {
    result.push_back(digits[hash[i] >> 4]);
    result.push_back(digits[hash[i] & 15]);
  }
  return result;
}

}  // namespace tarn::detail

#pragma once

#include <openssl/x509_vfy.h>

#include <string>

namespace tarn::detail {

/// Makes a verification fail unless the leaf is issued for `host`: a name, or an address with or
/// without brackets. Alternative names count, the common name does not. False for no host, or where
/// memory ran out.
bool requireHost(X509_STORE_CTX* context, std::string host) noexcept;

}  // namespace tarn::detail

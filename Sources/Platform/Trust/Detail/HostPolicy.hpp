#pragma once

#include <openssl/x509_vfy.h>

#include <string>

namespace tarn::detail {

// A host is a name, or an address with or without brackets. A certificate's alternative names
// count, its common name does not.

/// Makes a verification fail unless the leaf is issued for `host`. False for no host, or where
/// memory ran out.
bool requireHost(X509_STORE_CTX* context, const std::string& host) noexcept;

/// Whether a certificate, whoever signed it, is issued for `host`.
bool isIssuedFor(X509* certificate, const std::string& host) noexcept;

}  // namespace tarn::detail

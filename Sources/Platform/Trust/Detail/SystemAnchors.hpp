#pragma once

// OpenSSL's X509_STORE, named here so that no OpenSSL header is needed.
extern "C" {
struct x509_store_st;
}

namespace tarn::detail {

/// The authorities that the system trusts, one store for the whole process.
///
/// Read on first use (some 15 ms) from the file that SSL_CERT_FILE names, else from the system's
/// bundle. A file that cannot be read gives a store that trusts nobody. Null only where memory ran
/// out. Callable from any thread.
x509_store_st* systemAnchors() noexcept;

}  // namespace tarn::detail

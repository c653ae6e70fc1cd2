#pragma once

#include <Platform/Trust/Detail/SystemAnchors.hpp>
#include <Platform/Trust/SecCertificate.hpp>

#include <string>
#include <vector>

namespace tarn::detail {

/// What stands between a server's chain, the leaf first, and the anchors: OpenSSL's number of the
/// fault, X509_V_OK (0) for nothing. Looks at dates, signatures, purposes, the strength of keys and
/// the host's name, as a handshake would. `anchors` may be null: out of memory.
int certificateFault(const std::vector<SecCertificate>& chain, const std::string& host,
                     x509_store_st* anchors);

}  // namespace tarn::detail

#include <Platform/Trust/Detail/HostPolicy.hpp>

#include <openssl/x509v3.h>

namespace tarn::detail {

namespace {

bool isAddress(const std::string& host) noexcept {
  ASN1_OCTET_STRING* address = a2i_IPADDRESS(host.c_str());
  ASN1_OCTET_STRING_free(address);
  return address != nullptr;
}

}  // namespace

bool requireHost(X509_STORE_CTX* context, std::string host) noexcept {
  if (host.size() > 1 && host.front() == '[') {
    host.pop_back();
    host.erase(0, 1);
  }
  if (!host.empty() && host.back() == '.') host.pop_back();
  if (host.empty()) return false;
  X509_VERIFY_PARAM* parameters = X509_STORE_CTX_get0_param(context);
  if (isAddress(host)) return X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) == 1;
  // A common name is no longer an identity (RFC 9110, 4.3.4).
  X509_VERIFY_PARAM_set_hostflags(
      parameters, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return X509_VERIFY_PARAM_set1_host(parameters, host.data(), host.size()) == 1;
}

}  // namespace tarn::detail

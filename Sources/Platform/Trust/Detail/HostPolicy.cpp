#include <Platform/Trust/Detail/HostPolicy.hpp>

#include <openssl/x509v3.h>

#include <new>
#include <string_view>

namespace tarn::detail {

namespace {

// A common name is no longer an identity (RFC 9110, 4.3.4).
constexpr unsigned int nameRules =
    X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS;

// Without brackets, and without the dot that ends a fully qualified name.
std::string bare(std::string_view host) {
  if (host.size() > 1 && host.front() == '[') host = host.substr(1, host.size() - 2);
  if (host.ends_with('.')) host.remove_suffix(1);
  return std::string(host);
}

bool isAddress(const std::string& host) noexcept {
  ASN1_OCTET_STRING* address = a2i_IPADDRESS(host.c_str());
  ASN1_OCTET_STRING_free(address);
  return address != nullptr;
}

}  // namespace

bool requireHost(X509_STORE_CTX* context, const std::string& host) noexcept try {
  const auto name = bare(host);
  if (name.empty()) return false;
  X509_VERIFY_PARAM* parameters = X509_STORE_CTX_get0_param(context);
  if (isAddress(name)) return X509_VERIFY_PARAM_set1_ip_asc(parameters, name.c_str()) == 1;
  X509_VERIFY_PARAM_set_hostflags(parameters, nameRules);
  return X509_VERIFY_PARAM_set1_host(parameters, name.data(), name.size()) == 1;
} catch (const std::bad_alloc&) {
  return false;
}

bool isIssuedFor(X509* certificate, const std::string& host) noexcept try {
  const auto name = bare(host);
  if (name.empty()) return false;
  if (isAddress(name)) return X509_check_ip_asc(certificate, name.c_str(), 0) == 1;
  return X509_check_host(certificate, name.data(), name.size(), nameRules, nullptr) == 1;
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace tarn::detail

#pragma once

#include <Platform/Types/Data.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tarn {

namespace detail {
struct X509Handle;
}

/// A certificate (RFC 5280). A cheap copyable value; callable from any thread.
class SecCertificate {
 public:
  /// From its DER form; nothing where the bytes are no certificate, or more than one.
  static std::optional<SecCertificate> createWithData(const Data& data);

  /// The DER form.
  Data data() const;
  /// A name for people: the subject's common name, else its organisation, else the first name that
  /// the certificate is issued for.
  std::string subjectSummary() const;

  /// Whether both are the same certificate, byte for byte.
  friend bool operator==(const SecCertificate& left, const SecCertificate& right) noexcept;

  // For this library.
  explicit SecCertificate(std::shared_ptr<const detail::X509Handle> handle) noexcept
      : handle_(std::move(handle)) {}
  const detail::X509Handle& handle() const noexcept { return *handle_; }

 private:
  std::shared_ptr<const detail::X509Handle> handle_;
};

}  // namespace tarn

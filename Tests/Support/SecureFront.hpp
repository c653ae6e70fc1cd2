#pragma once
#include <Support/ScriptedServer.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace tarn::test {

/// Speaks TLS for a server on 127.0.0.1 that does not: takes connections and passes what is inside
/// their TLS on, both ways.
class SecureFront {
 public:
  /// Throws boost::system::system_error for files that can't be used.
  SecureFront(const TLSOptions& tls, std::uint16_t target);
  ~SecureFront();
  SecureFront(const SecureFront&) = delete;
  SecureFront& operator=(const SecureFront&) = delete;

  std::uint16_t port() const;
  /// "https://HOST:PORT"
  std::string url(const std::string& host) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tarn::test

#pragma once
#include <Support/System.hpp>
#include <Support/TestAuthority.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::test {

/// Debian's nginx as a child process on loopback: plain HTTP/1.1 and HTTPS, with HTTP/2 unless told
/// otherwise.
///
/// Serves `/hello` ("hello"), `/json` ({"name":"nginx","value":42}), `/text` (gzip when accepted),
/// `/big`
/// (`bigBody()`), `/redirect` (302 to `/hello`), `/post` (200 "posted" for any method, body
/// dropped), `/upload/NAME` (PUT stores, GET and DELETE follow); all else is 404. Every answer
/// carries `X-Protocol` and `X-Connection` (a number per connection).
class NginxServer {
 public:
  /// Throws std::runtime_error when nginx is missing or does not start.
  explicit NginxServer(TestAuthority& authority, std::size_t bigSize = 1 << 20, bool http2 = true);
  ~NginxServer();
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  std::uint16_t httpPort() const { return httpPort_; }
  std::uint16_t httpsPort() const { return httpsPort_; }
  /// "http://127.0.0.1:PORT/path"
  std::string url(std::string_view path) const;
  /// "https://localhost:PORT/path"
  std::string secureUrl(std::string_view path) const;

  std::string textBody() const;
  std::string bigBody() const;
  /// The path of what was stored by PUT to `/upload/NAME`.
  std::string uploadedFile(const std::string& name) const;
  /// Its content.
  std::string uploaded(const std::string& name) const;
  std::string errorLog() const;

 private:
  void start(int httpSocket, int httpsSocket);
  bool answers() const;
  void stop() noexcept;

  TemporaryDirectory directory_;
  std::size_t bigSize_;
  std::uint16_t httpPort_ = 0;
  std::uint16_t httpsPort_ = 0;
  int pid_ = -1;
};

}  // namespace tarn::test

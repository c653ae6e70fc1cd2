#include <Support/LoopbackAddress.hpp>
#include <Support/RawClient.hpp>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::test {
namespace {

constexpr timeval readLimit{15, 0};

int connectTo(int socket, std::uint16_t port) {
  const sockaddr_in address = loopback(port);
  return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

/// OpenSSL writes to sockets without MSG_NOSIGNAL: keeps the signal from ending the process, on
/// this thread only.
class WithoutBrokenPipeSignal {
 public:
  WithoutBrokenPipeSignal() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe_, &former_);
  }
  ~WithoutBrokenPipeSignal() {
    const int error = errno;
    const timespec now{0, 0};
    ::sigtimedwait(&pipe_, nullptr, &now);
    ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
    errno = error;
  }
  WithoutBrokenPipeSignal(const WithoutBrokenPipeSignal&) = delete;
  WithoutBrokenPipeSignal& operator=(const WithoutBrokenPipeSignal&) = delete;

 private:
  sigset_t pipe_;
  sigset_t former_;
};

RawClient::End endOf(int error) {
  if (error == ECONNRESET || error == EPIPE) return RawClient::End::reset;
  if (error == EAGAIN || error == EWOULDBLOCK) return RawClient::End::timedOut;
  return RawClient::End::failed;
}

RawClient::End tlsEnd(ssl_st* ssl, int result, int error) {
  switch (SSL_get_error(ssl, result)) {
    case SSL_ERROR_ZERO_RETURN:
      return RawClient::End::closed;
    case SSL_ERROR_SSL:
      return ERR_GET_REASON(ERR_peek_last_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING
                 ? RawClient::End::truncated
                 : RawClient::End::failed;
    default:
      return endOf(error);
  }
}

}  // namespace

RawClient::RawClient(std::uint16_t port)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &readLimit, sizeof readLimit);
  if (connectTo(socket_, port) != 0) {
    const int error = errno;
    ::close(socket_);
    throw std::runtime_error(std::string("connect: ") + std::strerror(error));
  }
}

RawClient::~RawClient() { close(); }

int RawClient::tryConnect(std::uint16_t port, int limitMilliseconds) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  int error = connectTo(socket, port) == 0 ? 0 : errno;
  if (error == EINPROGRESS) {
    pollfd wanted{socket, POLLOUT, 0};
    socklen_t size = sizeof error;
    if (::poll(&wanted, 1, limitMilliseconds) == 0) {
      error = ETIMEDOUT;
    } else {
      ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    }
  }
  ::close(socket);
  return error;
}

bool RawClient::handshake(const RawTLSOptions& options) {
  context_ = SSL_CTX_new(TLS_client_method());
  if (!options.caFile.empty()) SSL_CTX_load_verify_file(context_, options.caFile.c_str());
  if (options.offerOldVersions) {
    SSL_CTX_set_security_level(context_, 0);
    SSL_CTX_set_min_proto_version(context_, TLS1_VERSION);
  }
  if (!options.certFile.empty()) {
    SSL_CTX_use_certificate_chain_file(context_, options.certFile.c_str());
    SSL_CTX_use_PrivateKey_file(context_, options.keyFile.c_str(), SSL_FILETYPE_PEM);
  }
  SSL_CTX_set_verify(context_, SSL_VERIFY_PEER, nullptr);
  ssl_ = SSL_new(context_);
  SSL_set1_host(ssl_, options.host.c_str());
  SSL_set_alpn_protos(ssl_, reinterpret_cast<const unsigned char*>(options.protocols.data()),
                      static_cast<unsigned>(options.protocols.size()));
  SSL_set_fd(ssl_, socket_);
  ERR_clear_error();
  const WithoutBrokenPipeSignal guard;
  const int result = SSL_connect(ssl_);
  if (result != 1) end_ = tlsEnd(ssl_, result, errno);
  return result == 1;
}

long RawClient::verifyResult() const { return SSL_get_verify_result(ssl_); }

std::string RawClient::protocol() const {
  const unsigned char* name = nullptr;
  unsigned size = 0;
  SSL_get0_alpn_selected(ssl_, &name, &size);
  return {reinterpret_cast<const char*>(name), size};
}

bool RawClient::send(std::string_view bytes) {
  const WithoutBrokenPipeSignal guard;
  while (!bytes.empty()) {
    const auto sent = ssl_ ? SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size()))
                           : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool RawClient::get(std::string_view target) {
  return send("GET " + std::string(target) + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
}

bool RawClient::fill() {
  if (end_ != End::none) return false;
  std::array<char, 65536> piece;
  ERR_clear_error();
  const WithoutBrokenPipeSignal guard;
  const auto size = ssl_ ? SSL_read(ssl_, piece.data(), static_cast<int>(piece.size()))
                         : ::recv(socket_, piece.data(), piece.size(), 0);
  if (size > 0) {
    buffer_.append(piece.data(), static_cast<std::size_t>(size));
    return true;
  }
  if (ssl_) {
    end_ = tlsEnd(ssl_, static_cast<int>(size), errno);
  } else {
    end_ = size == 0 ? End::closed : endOf(errno);
  }
  return false;
}

std::string RawClient::read(std::size_t count) {
  while (buffer_.size() < count && fill()) {
  }
  std::string taken = buffer_.substr(0, count);
  buffer_.erase(0, taken.size());
  return taken;
}

std::string RawClient::readUntil(std::string_view mark) {
  std::size_t found = buffer_.find(mark);
  while (found == std::string::npos && fill()) found = buffer_.find(mark);
  return read(found == std::string::npos ? buffer_.size() : found + mark.size());
}

std::string RawClient::readToEnd() {
  while (fill()) {
  }
  return read(buffer_.size());
}

std::string RawClient::readResponse() {
  constexpr std::string_view lengthField = "Content-Length: ";
  std::string text = readUntil("\r\n\r\n");
  const auto at = text.find(lengthField);
  if (at == std::string::npos) return text;
  return text + read(std::stoul(text.substr(at + lengthField.size())));
}

bool RawClient::hasInput() const {
  pollfd wanted{socket_, POLLIN, 0};
  return !buffer_.empty() || ::poll(&wanted, 1, 0) > 0;
}

void RawClient::finishSending() { ::shutdown(socket_, SHUT_WR); }

void RawClient::close() {
  if (ssl_) SSL_free(ssl_);
  if (context_) SSL_CTX_free(context_);
  if (socket_ >= 0) ::close(socket_);
  ssl_ = nullptr;
  context_ = nullptr;
  socket_ = -1;
}

void RawClient::reset() {
  const linger now{1, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  close();
}

}  // namespace tarn::test

#include <Support/SecureFront.hpp>
#include <Support/ServerContext.hpp>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>

#include <array>
#include <thread>

namespace tarn::test {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using boost::system::error_code;

namespace {

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(tcp::socket client, asio::ssl::context& context)
      : server_(client.get_executor()), client_(std::move(client), context) {}

  void start(tcp::endpoint target) {
    client_.async_handshake(asio::ssl::stream_base::server,
                            [self = shared_from_this(), target](error_code failure) {
                              if (!failure) self->connect(target);
                            });
  }

 private:
  using Buffer = std::array<char, 16384>;

  void connect(const tcp::endpoint& target) {
    server_.async_connect(target, [self = shared_from_this()](error_code failure) {
      if (failure) return;
      self->pass(self->client_, self->server_, self->fromClient_);
      self->pass(self->server_, self->client_, self->fromServer_);
    });
  }

  template <class From, class To>
  void pass(From& from, To& to, Buffer& buffer) {
    from.async_read_some(asio::buffer(buffer), [this, self = shared_from_this(), &from, &to,
                                                &buffer](error_code failure, std::size_t size) {
      if (failure) return close();
      asio::async_write(to, asio::buffer(buffer, size),
                        [this, self, &from, &to, &buffer](error_code unsent, std::size_t) {
                          unsent ? close() : pass(from, to, buffer);
                        });
    });
  }

  void close() {
    error_code ignored;
    client_.lowest_layer().close(ignored);
    server_.close(ignored);
  }

  tcp::socket server_;
  asio::ssl::stream<tcp::socket> client_;
  Buffer fromClient_;
  Buffer fromServer_;
};

}  // namespace

class SecureFront::Impl {
 public:
  Impl(const TLSOptions& tls, std::uint16_t target)
      : context_(serverContext(tls)), target_(asio::ip::address_v4::loopback(), target) {
    accept();
    thread_ = std::thread([this] { io_.run(); });
  }
  ~Impl() {
    io_.stop();
    thread_.join();
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

 private:
  void accept() {
    acceptor_.async_accept([this](error_code failure, tcp::socket client) {
      if (failure) return;
      std::make_shared<Connection>(std::move(client), context_)->start(target_);
      accept();
    });
  }

  asio::ssl::context context_;
  const tcp::endpoint target_;
  asio::io_context io_{1};
  tcp::acceptor acceptor_{io_, {asio::ip::address_v4::loopback(), 0}};
  std::thread thread_;
};

SecureFront::SecureFront(const TLSOptions& tls, std::uint16_t target)
    : impl_(std::make_unique<Impl>(tls, target)) {}
SecureFront::~SecureFront() = default;

std::uint16_t SecureFront::port() const { return impl_->port(); }
std::string SecureFront::url(const std::string& host) const {
  return "https://" + host + ":" + std::to_string(port());
}

}  // namespace tarn::test

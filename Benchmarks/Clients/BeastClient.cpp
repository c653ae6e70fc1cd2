// Boost.Beast over Asio's coroutines: one thread, a coroutine for each request under way, which
// waits for a free connection.
#define BOOST_BEAST_FILE_BUFFER_SIZE 65536  // 4096 as delivered

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/experimental/channel.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>
#include <vector>

#include "PlainHTTP.hpp"

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;
using Clock = bench::Recorder::Clock;

// The executor by its own type instead of Asio's type-erased one.
using Executor = asio::io_context::executor_type;
using UseAwaitable = asio::use_awaitable_t<Executor>;
using Socket = UseAwaitable::as_default_on_t<asio::basic_stream_socket<asio::ip::tcp, Executor>>;
template <class T>
using Awaitable = asio::awaitable<T, Executor>;

struct Connection {
  explicit Connection(asio::io_context& context) : socket(context) {
    buffer.reserve(64 * 1024);  // each read takes up to its capacity, else 512 bytes
  }

  Socket socket;
  boost::beast::flat_buffer buffer;
};

// Hands the connections to whoever asks, the longest waiting first.
class Pool {
 public:
  Pool(asio::io_context& context, std::size_t connections)
      : free_(context.get_executor(), connections) {
    for (; connections > 0; --connections) give(new Connection(context));
  }

  ~Pool() {
    while (auto* connection = takeFree()) delete connection;
  }

  Awaitable<Connection*> take() {
    if (auto* connection = takeFree()) co_return connection;
    co_return co_await free_.async_receive(UseAwaitable());
  }

  void give(Connection* connection) { free_.try_send(error_code(), connection); }

 private:
  Connection* takeFree() {
    Connection* found = nullptr;
    free_.try_receive([&](error_code, Connection* connection) { found = connection; });
    return found;
  }

  asio::experimental::basic_channel<Executor, asio::experimental::channel_traits<>,
                                    void(error_code, Connection*)>
      free_;
};

class BeastClient : public bench::Client {
 public:
  explicit BeastClient(const bench::Workload& workload)
      : workload_(workload),
        target_(workload),
        endpoint_(asio::ip::make_address(target_.host), target_.port),
        pool_(context_, workload.connections) {
    const auto prepare = [&](auto& request, http::verb method) {
      request.method(method);
      request.target(target_.path);
      request.set(http::field::host, target_.authority());
      for (const auto& [name, value] : target_.fields) request.set(name, value);
    };
    prepare(get_, http::verb::get);
    prepare(put_, http::verb::put);
  }

  void run(std::size_t requests, bench::Recorder& recorder) override {
    const bool isBurst = workload_.name == "burst";
    std::size_t left = requests;
    for (std::size_t index = isBurst ? requests : std::min(workload_.inFlight, requests); index > 0;
         --index) {
      asio::co_spawn(context_, work(Clock::now(), left, recorder),
                     [](const std::exception_ptr& error) {
                       if (error) std::rethrow_exception(error);
                     });
    }
    context_.restart();
    context_.run();
  }

 private:
  // One request after another, until all were begun.
  Awaitable<void> work(Clock::time_point queued, std::size_t& left, bench::Recorder& recorder) {
    for (; left > 0; queued = Clock::now()) {
      --left;
      co_await exchange(queued, recorder);
    }
  }

  Awaitable<void> exchange(Clock::time_point queued, bench::Recorder& recorder) {
    Connection& connection = *co_await pool_.take();
    if (!connection.socket.is_open()) {
      co_await connection.socket.async_connect(endpoint_);
      connection.socket.set_option(asio::ip::tcp::no_delay(true));
    }
    if (workload_.name == "upload") {
      co_await upload(connection);
    } else {
      co_await http::async_write(connection.socket, get_);
    }
    if (workload_.name == "download") {
      co_await download(connection, queued, recorder);
    } else {
      http::response<http::string_body> response;
      co_await http::async_read(connection.socket, connection.buffer, response);
      if (workload_.name == "json") bench::decodeOrders(response.body());
      recorder.record(queued, static_cast<int>(response.result_int()), response.body().size());
    }
    pool_.give(&connection);
  }

  Awaitable<void> upload(Connection& connection) {
    error_code error;
    put_.body().open(workload_.file.c_str(), boost::beast::file_mode::scan, error);
    if (error) throw boost::system::system_error(error);
    put_.prepare_payload();
    co_await http::async_write(connection.socket, put_);
  }

  Awaitable<void> download(Connection& connection, Clock::time_point queued,
                           bench::Recorder& recorder) {
    http::response_parser<http::file_body> parser;
    parser.body_limit(boost::none);
    error_code error;
    parser.get().body().open(workload_.file.c_str(), boost::beast::file_mode::write, error);
    if (error) throw boost::system::system_error(error);
    co_await http::async_read(connection.socket, connection.buffer, parser);
    parser.get().body().close();
    recorder.record(queued, static_cast<int>(parser.get().result_int()),
                    std::filesystem::file_size(workload_.file));
  }

  const bench::Workload& workload_;
  const bench::Target target_;
  const asio::ip::tcp::endpoint endpoint_;
  asio::io_context context_{1};  // one thread
  Pool pool_;
  http::request<http::empty_body> get_;
  http::request<http::file_body> put_;
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runClient(argc, argv,
                          [](const bench::Workload& workload) -> std::unique_ptr<bench::Client> {
                            if (!bench::isPlain(workload)) return nullptr;
                            return std::make_unique<BeastClient>(workload);
                          });
}

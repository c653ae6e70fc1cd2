#include <Support/ScriptedConnection.hpp>
#include <Support/ScriptedServer.hpp>
#include <Support/ServerContext.hpp>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/executor_work_guard.hpp>

#include <algorithm>
#include <future>
#include <stdexcept>
#include <thread>
#include <utility>

namespace tarn::test {
namespace {

using detail::ErrorCode;
using detail::ServerLedger;
namespace asio = boost::asio;
using asio::ip::tcp;

}  // namespace

class ScriptedServer::Impl {
 public:
  explicit Impl(bool recordRequests, const TLSOptions* tls) {
    core.ledger.recordRequests = recordRequests;
    if (tls) core.tls.emplace(serverContext(*tls));
    port = acceptor_.local_endpoint().port();
    core.watcher.watch([this](int ordinal, bool reset) {
      if (const auto connection = find(ordinal)) connection->clientHungUp(reset);
    });
    accept();
    thread_ = std::thread([this] { serve(); });
  }

  ~Impl() {
    core.io.stop();
    thread_.join();
    core.live.clear();
  }

  /// Runs `work` on the server's thread and waits for its end.
  template <class Work>
  void onThread(Work work) {
    auto done = std::make_shared<std::promise<void>>();
    auto ended = done->get_future();
    asio::dispatch(core.io, [work = std::move(work), done] {
      work();
      done->set_value();
    });
    if (ended.wait_for(patience) != std::future_status::ready) {
      throw std::runtime_error("the scripted server's thread is blocked, by a handler perhaps");
    }
  }

  std::vector<std::shared_ptr<detail::ScriptedConnection>> liveConnections() const {
    std::vector<std::shared_ptr<detail::ScriptedConnection>> all;
    for (const auto& [ordinal, connection] : core.live) all.push_back(connection);
    return all;
  }

  void stopAccepting() {
    ErrorCode ignored;
    acceptor_.close(ignored);
  }

  detail::ServerCore core;
  std::uint16_t port = 0;

 private:
  std::shared_ptr<detail::ScriptedConnection> find(int ordinal) const {
    const auto found = core.live.find(ordinal);
    return found == core.live.end() ? nullptr : found->second;
  }

  void serve() {
    for (;;) {
      try {
        core.io.run();
        return;
      } catch (const std::exception&) {
        // One connection's failure must not end the others; what it means shows in the test that
        // caused it.
      }
    }
  }

  void accept() {
    acceptor_.async_accept([this](const ErrorCode& error, tcp::socket socket) {
      if (!acceptor_.is_open()) return;
      if (error) return retryAccept();
      const int ordinal = core.ledger.change([](ServerLedger& ledger) {
        ledger.connections.emplace_back();
        ledger.peak = std::max(ledger.peak, ++ledger.open);
        return static_cast<int>(ledger.connections.size()) - 1;
      });
      const auto connection =
          std::make_shared<detail::ScriptedConnection>(std::move(socket), core, ordinal);
      core.live.emplace(ordinal, connection);
      connection->start();
      accept();
    });
  }

  void retryAccept() {
    // Out of descriptors, say: trying again at once would only spin.
    retryTimer_.expires_after(std::chrono::milliseconds(20));
    retryTimer_.async_wait([this](const ErrorCode& error) {
      if (!error && acceptor_.is_open()) accept();
    });
  }

  asio::executor_work_guard<asio::io_context::executor_type> work_{core.io.get_executor()};
  tcp::acceptor acceptor_{core.io, tcp::endpoint(asio::ip::address_v4::loopback(), 0)};
  asio::steady_timer retryTimer_{core.io};
  std::thread thread_;
};

ScriptedServer::ScriptedServer(bool recordRequests)
    : impl_(std::make_unique<Impl>(recordRequests, nullptr)) {}

ScriptedServer::ScriptedServer(const TLSOptions& tls) try
    : impl_(std::make_unique<Impl>(true, &tls)) {
} catch (const boost::system::system_error& error) {
  throw std::runtime_error("scripted server: " + tls.certFile + ": " + error.what());
}

ScriptedServer::~ScriptedServer() = default;

void ScriptedServer::route(std::string path, Script script) {
  impl_->core.routes.set(std::move(path), {std::move(script)});
}

void ScriptedServer::routeSequence(std::string path, std::vector<Script> scripts) {
  impl_->core.routes.set(std::move(path), std::move(scripts));
}

void ScriptedServer::setHandler(Handler handler, When when) {
  impl_->core.routes.setHandler(std::move(handler), when);
}

void ScriptedServer::onConnect(Script script) {
  impl_->core.routes.setOnConnect(std::move(script));
}

std::uint16_t ScriptedServer::port() const { return impl_->port; }

std::string ScriptedServer::url(std::string_view path) const {
  return (impl_->core.tls ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(port()) +
         std::string(path);
}

std::string ScriptedServer::localhostUrl(std::string_view path) const {
  return (impl_->core.tls ? "https://localhost:" : "http://localhost:") + std::to_string(port()) +
         std::string(path);
}

std::vector<ReceivedRequest> ScriptedServer::requests() const {
  return impl_->core.ledger.read([](const ServerLedger& ledger) { return ledger.requests; });
}

ReceivedRequest ScriptedServer::request(std::size_t index) const {
  return impl_->core.ledger.read(
      [&](const ServerLedger& ledger) { return ledger.requests.at(index); });
}

std::size_t ScriptedServer::requestCount() const {
  return impl_->core.ledger.read([](const ServerLedger& ledger) { return ledger.requestCount; });
}

std::vector<ConnectionRecord> ScriptedServer::connections() const {
  return impl_->core.ledger.read([](const ServerLedger& ledger) { return ledger.connections; });
}

std::size_t ScriptedServer::connectionCount() const {
  return impl_->core.ledger.read(
      [](const ServerLedger& ledger) { return ledger.connections.size(); });
}

std::size_t ScriptedServer::openConnections() const {
  return impl_->core.ledger.read([](const ServerLedger& ledger) { return ledger.open; });
}

std::size_t ScriptedServer::peakConnections() const {
  return impl_->core.ledger.read([](const ServerLedger& ledger) { return ledger.peak; });
}

std::size_t ScriptedServer::stalledConnections() const {
  return impl_->core.ledger.read([](const ServerLedger& ledger) { return ledger.stalled; });
}

bool ScriptedServer::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
  return impl_->core.ledger.waitUntil(
      [&](const ServerLedger& ledger) { return ledger.requestCount >= count; }, limit);
}

bool ScriptedServer::waitForConnections(std::size_t count, std::chrono::milliseconds limit) const {
  return impl_->core.ledger.waitUntil(
      [&](const ServerLedger& ledger) { return ledger.connections.size() >= count; }, limit);
}

bool ScriptedServer::waitForConnectionsClosed(std::size_t count,
                                              std::chrono::milliseconds limit) const {
  return impl_->core.ledger.waitUntil(
      [&](const ServerLedger& ledger) { return ledger.closedByClient >= count; }, limit);
}

bool ScriptedServer::waitForStalls(std::size_t count, std::chrono::milliseconds limit) const {
  return impl_->core.ledger.waitUntil(
      [&](const ServerLedger& ledger) { return ledger.stalled >= count; }, limit);
}

bool ScriptedServer::waitForOpenConnections(std::size_t count,
                                            std::chrono::milliseconds limit) const {
  return impl_->core.ledger.waitUntil(
      [&](const ServerLedger& ledger) { return ledger.open <= count; }, limit);
}

bool ScriptedServer::waitForConnection(
    std::size_t ordinal, const std::function<bool(const ConnectionRecord&)>& condition,
    std::chrono::milliseconds limit) const {
  return impl_->core.ledger.waitUntil(
      [&](const ServerLedger& ledger) {
        return ordinal < ledger.connections.size() && condition(ledger.connections[ordinal]);
      },
      limit);
}

void ScriptedServer::releaseStalls(std::size_t count) {
  if (!waitForStalls(count)) throw std::runtime_error("too few scripts stand in a stall");
  impl_->onThread([impl = impl_.get()] {
    for (const auto& connection : impl->liveConnections()) connection->releaseStall();
  });
}

void ScriptedServer::closeConnections() {
  impl_->onThread([impl = impl_.get()] {
    for (const auto& connection : impl->liveConnections()) connection->finish();
  });
}

void ScriptedServer::stopListening() {
  impl_->onThread([impl = impl_.get()] { impl->stopAccepting(); });
}

}  // namespace tarn::test

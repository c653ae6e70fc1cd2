#pragma once
// The thread sanitizer does not understand fences, and GCC warns of each; the queue's mutex orders
// the same accesses.
#if defined(TARN_THREAD_SANITIZER)
#define BOOST_ASIO_DISABLE_FENCED_BLOCK
#endif

#include <Support/RequestReader.hpp>
#include <Support/ServerLedger.hpp>
#include <Support/ServerRoutes.hpp>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <functional>
#include <unordered_map>

// Private to the scripted server. All of it lives on the server's thread, but for the ledger and
// the routes.
namespace tarn::test::detail {

namespace asio = boost::asio;
using ErrorCode = boost::system::error_code;

class ScriptedConnection;

/// Tells when a client has ended a connection, also while nobody reads from it and bytes lie unread
/// before the FIN: Asio alone would not notice.
class HangUpWatcher {
 public:
  explicit HangUpWatcher(asio::io_context& io);
  void add(int socket, int ordinal);
  void remove(int socket);
  /// Calls `onHangUp(ordinal, reset)` at most once per socket.
  void watch(std::function<void(int, bool)> onHangUp);

 private:
  void wait();

  asio::posix::stream_descriptor epoll_;
  std::function<void(int, bool)> onHangUp_;
};

/// What the connections of one server share.
struct ServerCore {
  ServerLedger ledger;
  ServerRoutes routes;
  asio::io_context io{1};
  std::optional<asio::ssl::context> tls;
  HangUpWatcher watcher{io};
  std::unordered_map<int, std::shared_ptr<ScriptedConnection>> live;
};

/// One client: reads a request, runs its script, and so on until either side ends it.
class ScriptedConnection : public std::enable_shared_from_this<ScriptedConnection> {
 public:
  ScriptedConnection(asio::ip::tcp::socket socket, ServerCore& core, int ordinal);

  void start();
  void clientHungUp(bool reset);
  void releaseStall();
  void finish();

 private:
  using Next = void (ScriptedConnection::*)();

  void beginHTTP();
  void handshakeEnded(const ErrorCode& error);
  void awaitRequest();
  void headArrived();
  void readBody();
  void bodyArrived();
  void requestDone();
  void publish(bool complete);
  void readMore(Next next);

  void run(SharedScript script, Next then);
  void step();
  void perform(const Script::Step& step);
  void respond(const Script::Step& step);
  void dripOn();
  void dripPause();
  void startRepeat(const Script::Step& step);
  void repeatOn();
  void stall();
  void closeGracefully();
  void reset();

  template <class Buffers>
  void write(const Buffers& buffers, Next next);
  void pause(std::chrono::milliseconds time, Next next);
  void failed(const ErrorCode& error);
  void noteClientClosed(bool reset);
  void setStalled(bool stalled);
  void dropUnreadInput();
  template <class Change>
  void record(Change change);

  ServerCore& core_;
  const int ordinal_;
  asio::ip::tcp::socket socket_;
  std::optional<asio::ssl::stream<asio::ip::tcp::socket&>> tls_;
  asio::steady_timer timer_;
  std::array<char, 16384> input_{};
  bool finished_ = false;
  bool clientClosed_ = false;
  bool resetting_ = false;

  RequestReader reader_;
  ReceivedRequest request_;
  ServerRoutes::Choice choice_;
  bool requestOpen_ = false;              // a head has arrived, its exchange is not over
  std::optional<std::size_t> published_;  // where the ledger has the request

  SharedScript script_;
  std::size_t step_ = 0;
  Next afterScript_ = nullptr;
  Next afterBody_ = nullptr;
  bool stalled_ = false;
  bool pausing_ = false;
  std::size_t dripped_ = 0;
  std::string block_;
  std::uint64_t blockBytesLeft_ = 0;
};

}  // namespace tarn::test::detail

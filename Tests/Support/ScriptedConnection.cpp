#include <Support/ScriptedConnection.hpp>

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>

namespace tarn::test::detail {

HangUpWatcher::HangUpWatcher(asio::io_context& io) : epoll_(io) {
  const int descriptor = ::epoll_create1(EPOLL_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "epoll_create1");
  epoll_.assign(descriptor);
}

void HangUpWatcher::add(int socket, int ordinal) {
  epoll_event event{};
  event.events = EPOLLRDHUP | EPOLLONESHOT;
  event.data.fd = ordinal;
  ::epoll_ctl(epoll_.native_handle(), EPOLL_CTL_ADD, socket, &event);
}

void HangUpWatcher::remove(int socket) {
  ::epoll_ctl(epoll_.native_handle(), EPOLL_CTL_DEL, socket, nullptr);
}

void HangUpWatcher::watch(std::function<void(int, bool)> onHangUp) {
  onHangUp_ = std::move(onHangUp);
  wait();
}

void HangUpWatcher::wait() {
  epoll_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const ErrorCode& error) {
    if (error) return;
    std::array<epoll_event, 64> events;
    const int count =
        ::epoll_wait(epoll_.native_handle(), events.data(), static_cast<int>(events.size()), 0);
    for (int index = 0; index < count; ++index) {
      const epoll_event& event = events[static_cast<std::size_t>(index)];
      onHangUp_(event.data.fd, (event.events & EPOLLERR) != 0);
    }
    wait();
  });
}

ScriptedConnection::ScriptedConnection(asio::ip::tcp::socket socket, ServerCore& core, int ordinal)
    : core_(core), ordinal_(ordinal), socket_(std::move(socket)), timer_(core.io) {}

template <class Change>
void ScriptedConnection::record(Change change) {
  core_.ledger.change([&](ServerLedger& ledger) {
    change(ledger, ledger.connections[static_cast<std::size_t>(ordinal_)]);
  });
}

// ---- From connection to request

void ScriptedConnection::start() {
  ErrorCode ignored;
  socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
  core_.watcher.add(socket_.native_handle(), ordinal_);
  if (const SharedScript script = core_.routes.onConnect()) {
    run(script, &ScriptedConnection::beginHTTP);
  } else {
    beginHTTP();
  }
}

void ScriptedConnection::beginHTTP() {
  if (!core_.tls) return awaitRequest();
  tls_.emplace(socket_, *core_.tls);
  tls_->async_handshake(
      asio::ssl::stream_base::server,
      [self = shared_from_this()](const ErrorCode& error) { self->handshakeEnded(error); });
}

void ScriptedConnection::handshakeEnded(const ErrorCode& error) {
  if (finished_) return;
  if (error) {
    record([&](ServerLedger&, ConnectionRecord& own) { own.handshakeError = error.message(); });
    return failed(error);
  }
  SSL* ssl = tls_->native_handle();
  std::string subject;
  if (X509* certificate = SSL_get0_peer_certificate(ssl)) {
    std::array<char, 256> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate), NID_commonName, name.data(),
                              static_cast<int>(name.size()));
    subject = name.data();
  }
  record([&](ServerLedger&, ConnectionRecord& own) {
    own.handshakeDone = true;
    own.tlsVersion = SSL_get_version(ssl);
    own.sessionResumed = SSL_session_reused(ssl) == 1;
    own.clientCertificate = subject;
  });
  awaitRequest();
}

void ScriptedConnection::awaitRequest() {
  if (finished_) return;
  switch (reader_.takeHead(request_)) {
    case RequestReader::Progress::needsMore:
      return readMore(&ScriptedConnection::awaitRequest);
    case RequestReader::Progress::failed:
      return finish();
    case RequestReader::Progress::done:
      return headArrived();
  }
}

void ScriptedConnection::headArrived() {
  request_.connection = ordinal_;
  request_.receivedAt = std::chrono::steady_clock::now();
  requestOpen_ = true;
  choice_ = core_.routes.choose(request_);
  if (choice_.afterHead) {
    publish(reader_.bodyDone());
    run(choice_.scriptFor(request_), &ScriptedConnection::requestDone);
  } else {
    afterBody_ = &ScriptedConnection::bodyArrived;
    readBody();
  }
}

void ScriptedConnection::readBody() {
  if (finished_) return;
  switch (reader_.takeBody(request_)) {
    case RequestReader::Progress::needsMore:
      return readMore(&ScriptedConnection::readBody);
    case RequestReader::Progress::failed:
      return finish();
    case RequestReader::Progress::done:
      publish(true);
      return (this->*afterBody_)();
  }
}

void ScriptedConnection::bodyArrived() {
  run(choice_.scriptFor(request_), &ScriptedConnection::requestDone);
}

void ScriptedConnection::requestDone() {
  if (!reader_.bodyDone()) {
    afterBody_ = &ScriptedConnection::requestDone;
    return readBody();
  }
  requestOpen_ = false;
  published_.reset();
  const bool last = asksToClose(request_);
  request_ = {};
  if (last) return closeGracefully();
  if (!reader_.hasBytes()) return awaitRequest();
  // Posted: a client that sends a thousand requests at once must not make a thousand frames.
  asio::post(core_.io, [self = shared_from_this()] { self->awaitRequest(); });
}

void ScriptedConnection::publish(bool complete) {
  request_.complete = complete;
  core_.ledger.change([&](ServerLedger& ledger) {
    if (!published_) {
      published_ = ledger.requestCount++;
      ++ledger.connections[static_cast<std::size_t>(ordinal_)].requests;
      if (ledger.recordRequests) ledger.requests.push_back(request_);
    } else if (ledger.recordRequests) {
      ReceivedRequest& entry = ledger.requests[*published_];
      entry.body = request_.body;
      entry.complete = complete;
    }
  });
}

void ScriptedConnection::readMore(Next next) {
  auto handler = [self = shared_from_this(), next](const ErrorCode& error, std::size_t size) {
    if (self->finished_) return;
    if (error) return self->failed(error);
    self->record([&](ServerLedger&, ConnectionRecord& own) { own.bytesReceived += size; });
    self->reader_.feed(self->input_.data(), size);
    ((*self).*next)();
  };
  if (tls_) {
    tls_->async_read_some(asio::buffer(input_), std::move(handler));
  } else {
    socket_.async_read_some(asio::buffer(input_), std::move(handler));
  }
}

// ---- Scripts

void ScriptedConnection::run(SharedScript script, Next then) {
  script_ = std::move(script);
  step_ = 0;
  afterScript_ = then;
  step();
}

void ScriptedConnection::step() {
  if (finished_) return;
  if (step_ == script_->steps().size()) return (this->*afterScript_)();
  perform(script_->steps()[step_++]);
}

void ScriptedConnection::perform(const Script::Step& step) {
  using Action = Script::Action;
  switch (step.action) {
    case Action::send:
      return write(asio::buffer(*step.bytes), &ScriptedConnection::step);
    case Action::respond:
      return respond(step);
    case Action::drip:
      dripped_ = 0;
      return dripOn();
    case Action::repeat:
      return startRepeat(step);
    case Action::delay:
      return pause(step.interval, &ScriptedConnection::step);
    case Action::stall:
      return stall();
    case Action::readBody:
      afterBody_ = &ScriptedConnection::step;
      return requestOpen_ ? readBody() : this->step();
    case Action::awaitInput:
      return socket_.async_wait(asio::ip::tcp::socket::wait_read,
                                [self = shared_from_this()](const ErrorCode&) { self->step(); });
    case Action::halfClose: {
      ErrorCode ignored;
      socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
      return this->step();
    }
    case Action::close:
      return closeGracefully();
    case Action::truncate:
      return finish();
    case Action::reset:
      return reset();
  }
}

void ScriptedConnection::respond(const Script::Step& step) {
  std::array<asio::const_buffer, 2> parts{asio::buffer(*step.bytes)};
  if (request_.method != "HEAD") parts[1] = asio::buffer(*step.body);
  write(parts, &ScriptedConnection::step);
}

void ScriptedConnection::dripOn() {
  if (finished_) return;
  const Script::Step& step = script_->steps()[step_ - 1];
  if (dripped_ >= step.bytes->size()) return this->step();
  const std::size_t size = std::min(step.pieceSize, step.bytes->size() - dripped_);
  const auto piece = asio::buffer(step.bytes->data() + dripped_, size);
  dripped_ += size;
  if (dripped_ == step.bytes->size()) return write(piece, &ScriptedConnection::step);
  write(piece, &ScriptedConnection::dripPause);
}

void ScriptedConnection::dripPause() {
  pause(script_->steps()[step_ - 1].interval, &ScriptedConnection::dripOn);
}

void ScriptedConnection::startRepeat(const Script::Step& step) {
  constexpr std::size_t blockSize = 65536;
  const std::string& bytes = *step.bytes;
  block_ = bytes;
  while (block_.size() + bytes.size() <= blockSize) block_ += bytes;
  blockBytesLeft_ = step.times == 0 ? std::numeric_limits<std::uint64_t>::max()
                                    : step.times * static_cast<std::uint64_t>(bytes.size());
  repeatOn();
}

void ScriptedConnection::repeatOn() {
  if (finished_) return;
  if (blockBytesLeft_ == 0) return step();
  const auto size =
      static_cast<std::size_t>(std::min<std::uint64_t>(block_.size(), blockBytesLeft_));
  blockBytesLeft_ -= size;
  write(asio::buffer(block_.data(), size), &ScriptedConnection::repeatOn);
}

void ScriptedConnection::stall() {
  if (clientClosed_) return finish();
  setStalled(true);
}

void ScriptedConnection::releaseStall() {
  if (!stalled_) return;
  setStalled(false);
  step();
}

void ScriptedConnection::setStalled(bool stalled) {
  stalled_ = stalled;
  core_.ledger.change([&](ServerLedger& ledger) { stalled ? ++ledger.stalled : --ledger.stalled; });
}

void ScriptedConnection::pause(std::chrono::milliseconds time, Next next) {
  if (clientClosed_) return finish();
  pausing_ = true;
  timer_.expires_after(time);
  timer_.async_wait([self = shared_from_this(), next](const ErrorCode& error) {
    self->pausing_ = false;
    if (!error && !self->finished_) ((*self).*next)();
  });
}

template <class Buffers>
void ScriptedConnection::write(const Buffers& buffers, Next next) {
  auto handler = [self = shared_from_this(), next](const ErrorCode& error, std::size_t size) {
    if (self->finished_) return;
    self->record([&](ServerLedger&, ConnectionRecord& own) { own.bytesSent += size; });
    if (error) return self->failed(error);
    ((*self).*next)();
  };
  if (tls_) {
    asio::async_write(*tls_, buffers, std::move(handler));
  } else {
    asio::async_write(socket_, buffers, std::move(handler));
  }
}

// ---- Endings

void ScriptedConnection::clientHungUp(bool reset) {
  noteClientClosed(reset);
  // Reads and writes under way fail by themselves, after what the client sent before it left.
  if (stalled_ || pausing_) finish();
}

void ScriptedConnection::failed(const ErrorCode& error) {
  const bool reset = error == asio::error::connection_reset || error == asio::error::broken_pipe;
  if (reset || error == asio::error::eof || error == asio::ssl::error::stream_truncated) {
    noteClientClosed(reset);
  }
  finish();
}

void ScriptedConnection::noteClientClosed(bool reset) {
  record([&](ServerLedger& ledger, ConnectionRecord& own) {
    if (!own.closedByClient) ++ledger.closedByClient;
    own.closedByClient = true;
    own.resetByClient |= reset;
  });
  clientClosed_ = true;
}

void ScriptedConnection::closeGracefully() {
  if (!tls_) return finish();
  // With the client's close_notify taken as received, shutting down only sends ours and does not
  // wait.
  SSL_set_shutdown(tls_->native_handle(), SSL_RECEIVED_SHUTDOWN);
  tls_->async_shutdown([self = shared_from_this()](const ErrorCode&) { self->finish(); });
}

void ScriptedConnection::reset() {
  ErrorCode ignored;
  socket_.set_option(asio::socket_base::linger(true, 0), ignored);
  resetting_ = true;
  finish();
}

void ScriptedConnection::dropUnreadInput() {
  // The kernel answers with RST instead of FIN when a socket is closed over bytes that nobody has
  // read.
  constexpr int attempts = 4096;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (::recv(socket_.native_handle(), input_.data(), input_.size(), MSG_DONTWAIT) <= 0) return;
  }
}

void ScriptedConnection::finish() {
  if (finished_) return;
  finished_ = true;
  const auto self = shared_from_this();
  if (requestOpen_ && !reader_.bodyDone()) publish(false);
  if (stalled_) setStalled(false);
  core_.watcher.remove(socket_.native_handle());
  if (!resetting_) dropUnreadInput();
  timer_.cancel();
  ErrorCode ignored;
  socket_.close(ignored);
  core_.live.erase(ordinal_);
  record([](ServerLedger& ledger, ConnectionRecord& own) {
    own.open = false;
    --ledger.open;
  });
}

}  // namespace tarn::test::detail

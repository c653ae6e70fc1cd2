#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>
#include <Platform/URLLoading/Curl/WakeUpPair.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::detail {

namespace {

// Without it libcurl keeps four for each transfer under way, too few when a burst ends.
constexpr long mostIdleConnections = 64;

Transfer* transferOf(CURL* easy) noexcept {
  TransferHandle* handle = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &handle);
  return handle != nullptr ? handle->transfer() : nullptr;  // libcurl may have handles of its own
}

// Whether there were any to read.
bool dropBytes(int socket) noexcept {
  constexpr std::size_t everything = 1 << 30;  // dropped in the kernel, nothing is copied
  if (recv(socket, nullptr, everything, MSG_TRUNC | MSG_DONTWAIT) > 0) return true;
  if (errno != EFAULT) return false;
  // A Unix domain socket always copies.
  constexpr int mostReads = 1024;
  std::array<char, 4096> buffer;
  int reads = 0;
  while (reads < mostReads && recv(socket, buffer.data(), buffer.size(), MSG_DONTWAIT) > 0) ++reads;
  return reads > 0;
}

}  // namespace

SessionCore::SessionCore(Engine& engine, const URLSessionConfiguration& configuration)
    : engine_(engine),
      configuration_(configuration),
      connectionsPerHost_(std::max(1, configuration.httpMaximumConnectionsPerHost)),
      proxies_(ProxySettings::of(configuration)),
      resolverLines_(resolverLines(configuration.resolverOverrides)),
      cache_(configuration.cacheMemoryCapacity),
      queues_(connectionsPerHost_) {
  checkConfiguration(configuration);
}

SessionCore::~SessionCore() = default;

void SessionCore::open() {
  multi_ = curl_multi_init();
  cookies_ = curl_share_init();
  if (multi_ == nullptr || cookies_ == nullptr) throw std::bad_alloc();
  closeWakeUpPairOnExec(multi_);
  // Only this thread uses the share: it needs no lock functions.
  curl_share_setopt(cookies_, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, onSocket);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, onTimer);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
  curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, long{connectionsPerHost_});
  curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, mostIdleConnections);
}

void SessionCore::close() noexcept {
  engine_.timers().remove(*this);
  handles_.clear();
  if (multi_ != nullptr) curl_multi_cleanup(multi_);
  multi_ = nullptr;
  if (cookies_ != nullptr) curl_share_cleanup(cookies_);
  cookies_ = nullptr;
  cache_.clear();
  engine_.forget(*this);
}

void SessionCore::setOptions(CURL* easy, const Origin& origin) const {
  if (configuration_.httpShouldSetCookies) {
    setOption(easy, CURLOPT_SHARE, cookies_);
    setOption(easy, CURLOPT_COOKIEFILE, "");
  }
  if (resolverLines_) setOption(easy, CURLOPT_RESOLVE, resolverLines_.get());
  if (configuration_.unixDomainSocketPath) {
    setOption(easy, CURLOPT_UNIX_SOCKET_PATH, configuration_.unixDomainSocketPath->c_str());
  }
  if (origin.secure && !configuration_.allowsHTTP2) {
    setOption(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    setOption(easy, CURLOPT_PIPEWAIT, 0L);
  }
}

void SessionCore::admit(Transfer& transfer) {
  if (multi_ == nullptr) open();
  transfer.queue()->enter(transfer);
  admitNext(transfer.queue());
}

void SessionCore::attach(const Transfer& transfer, CURL* easy) {
  if (!transfer.origin().secure) dropSurprisedSockets();
  if (curl_multi_add_handle(multi_, easy) != CURLM_OK) throw std::bad_alloc();
}

void SessionCore::detach(const Transfer& transfer, CURL* easy) noexcept {
  noteKeptConnection(transfer, easy);
  curl_multi_remove_handle(multi_, easy);
  bool closed = false;
  for (auto& plain : plainSockets_) {
    if (plain.user != &transfer) continue;
    plain.user = nullptr;
    closed = closed || !plain.kept;
  }
  // libcurl closes a socket that did not become a connection without a word, and the number may be
  // somebody else's by now.
  if (closed) std::erase_if(plainSockets_, [](const auto& p) { return !p.user && !p.kept; });
  idleChecked_ = {};
}

void SessionCore::release(const std::shared_ptr<HostQueue>& queue) {
  queue->release();
  admitNext(queue);
}

// Not at once: a start that fails frees its slot again, and a long queue of those would nest as
// deep.
void SessionCore::admitNext(const std::shared_ptr<HostQueue>& queue) {
  if (!queue->hasWaiting()) return;
  if (movedOn_.empty() || movedOn_.back() != queue) movedOn_.push_back(queue);
  touch();
}

void SessionCore::setMultiplexed(const std::shared_ptr<HostQueue>& queue, bool multiplexed) {
  if (queue->setMultiplexed(multiplexed)) admitNext(queue);
}

void SessionCore::setAsking(const Transfer& transfer, bool asking) {
  const bool asked = std::erase(asking_, &transfer) > 0;
  if (asking) {
    asking_.push_back(&transfer);
  } else if (asked) {
    transfer.queue()->questionClosed(engine_.now());
  }
}

Clock::time_point SessionCore::lastAsked(const HostQueue& queue) const noexcept {
  const bool now = std::any_of(asking_.begin(), asking_.end(), [&](const Transfer* transfer) {
    return transfer->queue().get() == &queue;
  });
  return now ? engine_.now() : queue.lastQuestion();
}

void SessionCore::touch() {
  if (touched_) return;
  engine_.serveLater(shared_from_this());
  touched_ = true;
}

void SessionCore::socketReady(int socket, std::uint32_t events) noexcept {
  int mask = 0;
  if ((events & EPOLLIN) != 0) mask |= CURL_CSELECT_IN;
  if ((events & EPOLLOUT) != 0) mask |= CURL_CSELECT_OUT;
  if ((events & (EPOLLERR | EPOLLHUP)) != 0) mask |= CURL_CSELECT_ERR;
  int running = 0;
  curl_multi_socket_action(multi_, socket, mask, &running);
  touch();
}

void SessionCore::timerFired() noexcept { driveNow(); }

void SessionCore::driveNow() noexcept {
  int running = 0;
  curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
  touch();
}

void SessionCore::serve() noexcept {
  touched_ = false;
  int left = 0;
  while (multi_ != nullptr) {
    const CURLMsg* message = curl_multi_info_read(multi_, &left);
    if (message == nullptr) break;
    transferOf(message->easy_handle)->transferEnded(message->data.result);
  }
  startWaiting();
}

void SessionCore::startWaiting() noexcept {
  for (std::size_t i = 0; i < movedOn_.size(); ++i) {
    const auto queue = std::move(movedOn_[i]);
    while (Transfer* next = queue->next()) next->start();
  }
  movedOn_.clear();
}

// libcurl names the connection to the last of the transfers that share it, if all of them ended by
// themselves. Without TLS none is shared, and only one that the transfer opened is new to us.
void SessionCore::noteKeptConnection(const Transfer& transfer, CURL* easy) noexcept {
  long connections = 0;
  curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &connections);
  if (connections == 0 && !transfer.origin().secure) return;
  curl_socket_t socket = CURL_SOCKET_BAD;
  curl_easy_getinfo(easy, CURLINFO_ACTIVESOCKET, &socket);
  if (socket == CURL_SOCKET_BAD) return;
  engine_.connectionKept(socket);
  for (auto& plain : plainSockets_) {
    if (plain.socket == socket) plain.kept = true;
  }
}

// Bytes that arrive on a connection while it is idle belong to no request; libcurl would take them
// for the answer to the next one. With the bytes gone and its end in sight, the connection looks to
// libcurl like one that the server closed. One call looks at all of them, once in a round.
void SessionCore::dropSurprisedSockets() {
  if (idleChecked_ == engine_.now()) return;
  std::vector<pollfd> idle;
  idle.reserve(plainSockets_.size());
  for (const auto& plain : plainSockets_) {
    if (plain.kept && plain.user == nullptr) idle.push_back({plain.socket, POLLIN, 0});
  }
  // It fails, for one, with more sockets than the process may have by now.
  const bool unknown = !idle.empty() && poll(idle.data(), idle.size(), 0) < 0;
  for (const auto& [socket, events, readable] : idle) {
    if ((unknown || readable != 0) && dropBytes(socket)) shutdown(socket, SHUT_RDWR);
  }
  idleChecked_ = engine_.now();
}

void SessionCore::socketOpened(int socket, const Transfer& transfer) {
  if (transfer.origin().secure) return;
  std::erase_if(plainSockets_, [socket](const auto& plain) { return plain.socket == socket; });
  plainSockets_.push_back({socket, &transfer});
}

int SessionCore::socketClosed(void* self, curl_socket_t socket) noexcept {
  auto& core = *static_cast<SessionCore*>(self);
  std::erase_if(core.plainSockets_, [socket](const auto& plain) { return plain.socket == socket; });
  core.engine_.socketClosed(socket);
  return ::close(socket);
}

void SessionCore::socketChanged(CURL* easy, curl_socket_t socket, int what) {
  std::uint32_t events = 0;
  if (what != CURL_POLL_REMOVE) {
    if ((what & CURL_POLL_IN) != 0) events |= EPOLLIN;
    if ((what & CURL_POLL_OUT) != 0) events |= EPOLLOUT;
    Transfer* const transfer = transferOf(easy);
    for (auto& plain : plainSockets_) {
      if (plain.socket == socket) plain.user = transfer;
    }
  }
  engine_.watch(socket, events, *this);
}

int SessionCore::onSocket(CURL* easy, curl_socket_t socket, int what, void* self, void*) noexcept {
  try {
    static_cast<SessionCore*>(self)->socketChanged(easy, socket, what);
    return 0;
  } catch (...) {
    return -1;  // libcurl then gives the transfer up
  }
}

int SessionCore::onTimer(CURLM*, long milliseconds, void* self) noexcept {
  auto& core = *static_cast<SessionCore*>(self);
  try {
    if (milliseconds < 0) {
      core.engine_.timers().remove(core);
    } else {
      core.engine_.timers().set(core, core.engine_.now() + std::chrono::milliseconds(milliseconds));
    }
    return 0;
  } catch (...) {
    return -1;
  }
}

}  // namespace tarn::detail

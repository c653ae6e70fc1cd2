#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/URLLoading/Curl/Redirects.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <sys/socket.h>

// The part of Transfer that libcurl calls.
namespace tarn::detail {

namespace {

// So much of a held answer's body is kept for a delegate that may want it, before it is asked.
constexpr std::size_t mostHeldBody = 256 * 1024;

long oldestVersion(TLSProtocolVersion version) noexcept {
  switch (version) {
    case TLSProtocolVersion::TLSv10:
      return CURL_SSLVERSION_TLSv1_0;
    case TLSProtocolVersion::TLSv11:
      return CURL_SSLVERSION_TLSv1_1;
    case TLSProtocolVersion::TLSv12:
      return CURL_SSLVERSION_TLSv1_2;
    case TLSProtocolVersion::TLSv13:
      break;
  }
  return CURL_SSLVERSION_TLSv1_3;
}

}  // namespace

/// The C functions: none lets an exception through, what is thrown fails the transfer.
struct TransferCallbacks {
  static Transfer& transferOf(void* handle) noexcept {
    return *static_cast<TransferHandle*>(handle)->transfer();
  }
  template <class Result, class Action>
  static Result guarded(void* handle, Result failed, Action&& action) noexcept {
    Transfer& transfer = transferOf(handle);
    try {
      try {
        return action(transfer);
      } catch (const URLError& failure) {
        transfer.refusal_ = failure;
      } catch (const std::exception& failure) {
        transfer.refusal_.emplace(URLError::unknown, failure.what());
      }
    } catch (...) {
      // libcurl's own code for the refused call has to do.
    }
    return failed;
  }

  static std::size_t header(char* text, std::size_t, std::size_t size, void* handle) noexcept {
    return guarded(handle, std::size_t{0}, [&](Transfer& t) { return t.headLines({text, size}); });
  }
  static std::size_t write(char* bytes, std::size_t, std::size_t size, void* handle) noexcept {
    return guarded(handle, std::size_t{CURL_WRITEFUNC_ERROR}, [&](Transfer& t) {
      return t.bodyPart(reinterpret_cast<const std::uint8_t*>(bytes), size);
    });
  }
  static std::size_t read(char* buffer, std::size_t, std::size_t size, void* handle) noexcept {
    return guarded(handle, std::size_t{CURL_READFUNC_ABORT},
                   [&](Transfer& t) { return t.readBody(buffer, size); });
  }
  static int seek(void* handle, curl_off_t offset, int) noexcept {
    return transferOf(handle).seekBody(offset);
  }
  static int beforeRequest(void* handle, char*, char*, int, int) noexcept {
    return guarded(handle, int{CURL_PREREQFUNC_ABORT},
                   [](Transfer& t) { return t.requestStarts(); });
  }
  static int progress(void* handle, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) noexcept {
    Transfer& transfer = transferOf(handle);
    if (std::exchange(transfer.bytesSent_, sent) != sent) transfer.progressed();
    return 0;
  }
  static CURLcode sslContext(CURL*, void* context, void* handle) noexcept {
    return guarded(handle, CURLE_OUT_OF_MEMORY, [&](Transfer& t) { return t.prepareTLS(context); });
  }
  static curl_socket_t open(void* handle, curlsocktype, curl_sockaddr* address) noexcept {
    return guarded(handle, curl_socket_t{CURL_SOCKET_BAD},
                   [&](Transfer& t) { return t.openSocket(*address); });
  }
};

void Transfer::configure(TransferHandle& handle) {
  const URLRequest& request = sentRequest();
  CURL* const easy = handle.easy();
  if (handle.isFresh()) {
    setRequestOptions(easy, request.httpMethod(), body_ != nullptr, origin(), core_->proxies());
    core_->setOptions(easy, origin());
    setCallbacks(handle);
  }
  handle.setTransfer(this);
  handle.setAddress(request.url().absoluteString());
  handle.setFields(request, authenticator_.authorization(request));
  cache_.send(handle);
  authenticator_.configure(easy, request, origin());
  if (body_) setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{body_->size()});
}

// Which functions of ours libcurl calls, all of them with the handle, which knows its transfer.
void Transfer::setCallbacks(TransferHandle& handle) {
  CURL* const easy = handle.easy();
  const auto setData = [&](std::initializer_list<CURLoption> options) {
    for (const auto option : options) setOption(easy, option, static_cast<void*>(&handle));
  };
  setData({CURLOPT_PRIVATE, CURLOPT_HEADERDATA, CURLOPT_WRITEDATA, CURLOPT_OPENSOCKETDATA,
           CURLOPT_PREREQDATA, CURLOPT_SSL_CTX_DATA});
  setOption(easy, CURLOPT_HEADERFUNCTION, &TransferCallbacks::header);
  setOption(easy, CURLOPT_WRITEFUNCTION, &TransferCallbacks::write);
  setOption(easy, CURLOPT_OPENSOCKETFUNCTION, &TransferCallbacks::open);
  setOption(easy, CURLOPT_PREREQFUNCTION, &TransferCallbacks::beforeRequest);
  // A connection outlives the transfer that opened it.
  setOption(easy, CURLOPT_CLOSESOCKETFUNCTION, &SessionCore::socketClosed);
  setOption(easy, CURLOPT_CLOSESOCKETDATA, static_cast<void*>(core_.get()));
  if (body_) {
    setData({CURLOPT_READDATA, CURLOPT_SEEKDATA, CURLOPT_XFERINFODATA});
    setOption(easy, CURLOPT_READFUNCTION, &TransferCallbacks::read);
    setOption(easy, CURLOPT_SEEKFUNCTION, &TransferCallbacks::seek);
    setOption(easy, CURLOPT_XFERINFOFUNCTION, &TransferCallbacks::progress);
    setOption(easy, CURLOPT_NOPROGRESS, 0L);
  }
  const bool proxyIsSecure = secureProxy().has_value();
  if (!origin().secure && !proxyIsSecure) return;
  const long oldest = oldestVersion(core_->configuration().tlsMinimumSupportedProtocolVersion);
  setOption(easy, CURLOPT_SSLVERSION, oldest);
  if (proxyIsSecure) {
    setOption(easy, CURLOPT_PROXY_SSLVERSION, oldest);
    setOption(easy, CURLOPT_PROXY_CAINFO, static_cast<const char*>(nullptr));
    setOption(easy, CURLOPT_PROXY_CAPATH, static_cast<const char*>(nullptr));
  }
  setOption(easy, CURLOPT_SSL_CTX_FUNCTION, &TransferCallbacks::sslContext);
}

void Transfer::progressed() noexcept { lastProgress_ = core_->engine().now(); }

// Usually one line; those that came while the transfer was paused come all at once.
std::size_t Transfer::headLines(std::string_view text) {
  const std::size_t size = text.size();
  if (discarding_) return size;
  progressed();
  if (connecting_) return size;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size() - 1) + 1;
    const auto event = head_.line(text.substr(0, end));
    if (event == HeadParser::Event::headComplete) answerArrived();
    if (event == HeadParser::Event::refused) {
      refusal_ = error(URLError::cannotParseResponse, head_.refusal());
      return 0;
    }
    text.remove_prefix(end);
  }
  return size;
}

void Transfer::answerArrived() {
  core_->setMultiplexed(queue_, head_.httpVersion() == "HTTP/2");
  const auto length = head_.announcedLength().value_or(-1);
  if (origin().secure && head_.bodyEndsWithConnection()) {
    curl_tlssessioninfo* tls = nullptr;
    curl_easy_getinfo(handle_->easy(), CURLINFO_TLS_SSL_PTR, &tls);
    if (tls != nullptr && tls->internals != nullptr)
      endOfBody_ = recordOfConnection(tls->internals);
  }
  const bool redirect = isRedirect(head_.statusCode(), head_.fields());
  auto response = makeResponse(length);
  const bool endIsKnown = !head_.bodyEndsWithConnection() || response->statusCode() == 204;
  challenged_ = authenticator_.isChallenge(*response, origin(), false);
  if (cache_.answerArrived(sentRequest(), response, endIsKnown)) return takeKeptAnswer();
  if (!redirect && !challenged_) answer_ = task_->requestInstead(*response);
  if (redirect || challenged_ || answer_) {
    held_ = std::move(response);
  } else {
    publishResponse(std::move(response));
  }
}

std::shared_ptr<const HTTPURLResponse> Transfer::makeResponse(std::int64_t expectedContentLength) {
  const auto encoding = head_.fields().value("Content-Encoding");
  const int status = head_.statusCode();
  decoder_ = encoding && bodyFollows(status) ? ContentDecoder::forCodings(*encoding) : nullptr;
  if (decoder_) expectedContentLength = -1;
  return std::make_shared<const HTTPURLResponse>(request_->url(), status, head_.httpVersion(),
                                                 head_.takeFields(), expectedContentLength);
}

void Transfer::publishResponse(std::shared_ptr<const HTTPURLResponse> response) {
  bytesToCome_ = response->expectedContentLength();
  const bool hasBody = bodyFollows(response->statusCode());
  task_->setResponse(std::move(response));
  if (hasBody && bytesToCome_ > mostBodyBytes()) throw bodyTooLong();
}

std::size_t Transfer::bodyPart(const std::uint8_t* bytes, std::size_t size) {
  if (discarding_) return size;
  const std::size_t result = takeBodyPart(bytes, size);
  heldBack_ = result == CURL_WRITEFUNC_PAUSE;
  return result;
}

std::size_t Transfer::takeBodyPart(const std::uint8_t* bytes, std::size_t size) {
  if (suspended_) return CURL_WRITEFUNC_PAUSE;
  progressed();
  if (held_) return holdBody(bytes, size);
  if (!decoderDry_ || !hasRoom()) return CURL_WRITEFUNC_PAUSE;
  return deliverBody(bytes, size) ? size : CURL_WRITEFUNC_ERROR;
}

std::size_t Transfer::holdBody(const std::uint8_t* bytes, std::size_t size) {
  if (heldBody_.size() + size > mostHeldBody) {
    // Too long to wait for its end: the delegate is asked as soon as libcurl has returned.
    heldBodyFull_ = true;
    core_->engine().timers().set(*this, core_->engine().now());
    return CURL_WRITEFUNC_PAUSE;
  }
  bodyStarted_ = true;
  heldBody_.append(reinterpret_cast<const char*>(bytes), size);
  return size;
}

bool Transfer::deliverBody(const std::uint8_t* bytes, std::size_t size) {
  bodyStarted_ = true;
  task_->countReceived(size);
  if (decoder_) {
    decoder_->feed(bytes, size);
    return drainDecoder();
  }
  const auto expected = bytesToCome_;
  if (bytesToCome_ >= 0) bytesToCome_ -= static_cast<std::int64_t>(size);
  return handOver(bytes, size, expected);
}

// What goes beyond the limit is not delivered, however much of it there is.
bool Transfer::handOver(const std::uint8_t* bytes, std::size_t size, std::int64_t expected) {
  bodyBytes_ += static_cast<std::int64_t>(size);
  if (bodyBytes_ > mostBodyBytes()) {
    refusal_ = bodyTooLong();
    return false;
  }
  task_->addData(bytes, size, expected);
  return true;
}

std::int64_t Transfer::mostBodyBytes() const noexcept {
  return core_->configuration().maximumResponseBytes.value_or(
      std::numeric_limits<std::int64_t>::max());
}

bool Transfer::bodyFollows(int statusCode) const noexcept {
  return request_->httpMethod() != "HEAD" && statusCode != 204 && statusCode != 304;
}

URLError Transfer::bodyTooLong() const {
  return error(URLError::dataLengthExceedsMaximum, "The body is longer than the session allows.");
}

// Decodes until the input is used up or the delegate has enough; the rest waits for roomMade().
bool Transfer::drainDecoder() {
  std::array<std::uint8_t, 32 * 1024> buffer;
  decoderDry_ = false;
  while (hasRoom()) {
    const auto count = decoder_->read(buffer.data(), buffer.size());
    if (!count) {
      decoderDry_ = true;
      refusal_ = error(URLError::cannotDecodeRawData, "The encoded body is corrupt.");
      return false;
    }
    if (*count > 0 && !handOver(buffer.data(), *count, -1)) {
      decoderDry_ = true;
      return false;
    }
    if (*count < buffer.size()) {
      decoderDry_ = true;
      return true;
    }
  }
  decoder_->keepInput();
  return true;
}

std::size_t Transfer::readBody(char* buffer, std::size_t size) {
  if (suspended_) return CURL_READFUNC_PAUSE;
  const auto count = body_->read(bodyOffset_, buffer, size);
  bodyOffset_ += static_cast<std::int64_t>(count);
  return count;
}

int Transfer::seekBody(curl_off_t offset) noexcept {
  if (offset < 0 || offset > body_->size()) return CURL_SEEKFUNC_FAIL;
  bodyOffset_ = offset;
  return CURL_SEEKFUNC_OK;
}

// libcurl sends a request again when a kept-alive connection turns out to be dead.
int Transfer::requestStarts() {
  progressed();  // a connection stands
  connecting_ = false;
  core_->engine().routes().remove(*this);
  if (++requestCount_ == 1 || request_->allowsResend()) return CURL_PREREQFUNC_OK;
  refusal_ = error(URLError::networkConnectionLost,
                   "The connection was lost, and the request must not be sent again.");
  return CURL_PREREQFUNC_ABORT;
}

curl_socket_t Transfer::openSocket(const curl_sockaddr& address) {
  std::memcpy(&triedAddresses_.emplace_back(), &address.addr,
              std::min<std::size_t>(address.addrlen, sizeof(sockaddr_storage)));
  const int socket = ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (socket >= 0) core_->socketOpened(socket, *this);
  connecting_ = true;
  meetsProxyNext_ = secureProxy().has_value();
  return socket;
}

}  // namespace tarn::detail

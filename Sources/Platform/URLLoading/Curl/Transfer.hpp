#pragma once

#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Curl/Authenticator.hpp>
#include <Platform/URLLoading/Curl/CacheExchange.hpp>
#include <Platform/URLLoading/Curl/ContentDecoder.hpp>
#include <Platform/URLLoading/Curl/HandlePool.hpp>
#include <Platform/URLLoading/Curl/Handshake.hpp>
#include <Platform/URLLoading/Curl/HeadParser.hpp>
#include <Platform/URLLoading/Curl/RouteMonitor.hpp>
#include <Platform/URLLoading/Curl/TimerHeap.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>
#include <Platform/URLLoading/Detail/Recycled.hpp>
#include <Platform/URLLoading/Detail/RequestBody.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLAuthenticationChallenge.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace tarn::detail {

class CurlTask;
class SessionCore;
struct Failure;

/// A task under way, from its first resume() to its end: waits for a connection, drives libcurl,
/// follows redirects.
///
/// On the loop thread only. Owned by its task and keeps it alive; `finish` ends both, so nothing
/// may be touched after it.
class Transfer final : public Recycled<Transfer>, private Timer, private RouteWaiter {
 public:
  Transfer(std::shared_ptr<CurlTask> task, std::shared_ptr<SessionCore> core);
  ~Transfer() override;

  const std::shared_ptr<HostQueue>& queue() const noexcept { return queue_; }
  const Origin& origin() const noexcept { return queue_->origin(); }
  bool isSuspended() const noexcept { return suspended_; }

  // By the task.
  /// `first` is sent in place of the task's original request.
  void begin(std::optional<URLRequest> first);
  void setSuspended(bool suspended);
  /// The delegate has caught up: reading may go on.
  void roomMade();
  /// Body bytes leave for the delegate; more may follow.
  void handingOver(const Data& bytes) { cache_.bodyPart(sentRequest(), bytes); }
  /// The delegate's answer to a redirect; nothing for "take the redirecting answer itself".
  void redirectAnswered(std::optional<URLRequest> request);
  /// The delegate's answer to the last challenge, of the connection or of an answer.
  void challengeAnswered(URLSessionAuthChallengeDisposition disposition,
                         std::optional<URLCredential> credential);

  // By the session's core.
  /// A connection slot is free for this transfer.
  void start() noexcept;
  void transferEnded(CURLcode result) noexcept;

 private:
  friend struct TransferCallbacks;

  /// queued: waits for a slot. running: libcurl has it. asking: the delegate decides what becomes
  /// of the held answer. draining: libcurl is done, the decoder still holds more than the delegate
  /// has room for. kept: the cache has the answer, which waits until the task is not suspended.
  /// waiting: there is no route to the host.
  enum class Stage { queued, running, asking, draining, kept, waiting };

  void aim();
  void enterQueue();
  void completeRequest();
  const URLRequest& sentRequest() const noexcept { return completed_ ? *completed_ : *request_; }
  void attach();
  void configure(TransferHandle& handle);
  void setCallbacks(TransferHandle& handle);
  long readBuffer() const noexcept;
  bool leavesNoTrace(CURLcode result) const noexcept;
  void leaveConnection(bool keepsHandle = false) noexcept;
  void finish(std::optional<URLError> error) noexcept;
  void conclude();
  void guarded(void (Transfer::*action)()) noexcept;

  // What libcurl calls; see TransferCallbacks.
  std::size_t headLines(std::string_view text);
  std::size_t bodyPart(const std::uint8_t* bytes, std::size_t size);
  std::size_t takeBodyPart(const std::uint8_t* bytes, std::size_t size);
  std::size_t readBody(char* buffer, std::size_t size);
  int seekBody(curl_off_t offset) noexcept;
  int requestStarts();
  CURLcode prepareTLS(void* context);
  curl_socket_t openSocket(const curl_sockaddr& address);
  void progressed() noexcept;

  void answerArrived();
  std::shared_ptr<const HTTPURLResponse> makeResponse(std::int64_t expectedContentLength);
  void setRequest(URLRequest request);
  void publishResponse(std::shared_ptr<const HTTPURLResponse> response);
  bool deliverBody(const std::uint8_t* bytes, std::size_t size);
  bool handOver(const std::uint8_t* bytes, std::size_t size, std::int64_t expected);
  std::int64_t mostBodyBytes() const noexcept;
  bool bodyFollows(int statusCode) const noexcept;
  URLError bodyTooLong() const;
  bool drainDecoder();
  bool hasRoom();
  void readOn();
  void unpause();

  std::size_t holdBody(const std::uint8_t* bytes, std::size_t size);
  std::optional<Origin> secureProxy() const;
  void askHandshake();
  void repeatHandshake();
  void handshakeAnswered(URLSessionAuthChallengeDisposition disposition,
                         std::optional<URLCredential> credential);
  void loginAnswered(URLSessionAuthChallengeDisposition disposition,
                     std::optional<URLCredential> credential);

  void holdRefusedTunnel();
  void askAboutHeld();
  void askLogin();
  bool lacksRoute(const Failure& failure) const noexcept;
  void waitForRoute();
  void routesChanged() noexcept override;

  void askRedirect();
  void follow();
  void sendAgain();
  void endWithKeptAnswer();
  void takeKeptAnswer();
  void takeHeld();

  std::optional<URLError> failureOf(CURLcode result);
  URLError error(std::int32_t code, std::string detail) const;

  void timerFired() noexcept override;
  void armTimer();
  bool idleTimeCounts() const noexcept;

  const std::shared_ptr<CurlTask> task_;
  const std::shared_ptr<SessionCore> core_;
  const Clock::duration idleLimit_;
  const Clock::time_point resourceDeadline_;
  const URLRequest* request_;                    // the one on its way
  std::unique_ptr<const URLRequest> completed_;  // that one, where something is added on sending
  const URL* bodyFile_;                          // the task's, as long as it is to be sent
  std::shared_ptr<HostQueue> queue_;             // of where it goes; null before the first
  Authenticator authenticator_;

  Stage stage_ = Stage::queued;
  bool hasSlot_ = false;
  bool suspended_ = false;
  bool backedUp_ = false;
  bool heldBack_ = false;    // libcurl keeps a part of the body, to offer it again
  bool discarding_ = false;  // what it still offers is no longer wanted
  int redirectCount_ = 0;
  bool toldWaiting_ = false;
  CacheExchange cache_;
  std::optional<URLRequest> answer_;  // what to send instead of taking the last answer
  Clock::time_point lastProgress_;

  // Of the present attempt.
  std::unique_ptr<TransferHandle> handle_;
  std::uint64_t routesTried_ = 0;  // RouteMonitor::changes() when it began
  std::vector<sockaddr_storage> triedAddresses_;
  bool withoutRoute_ = false;
  std::unique_ptr<RequestBody> body_;  // null where none goes out
  std::int64_t bodyOffset_ = 0;
  curl_off_t bytesSent_ = 0;
  int requestCount_ = 0;
  bool connecting_ = false;      // what comes now is a proxy's answer to CONNECT
  bool meetsProxyNext_ = false;  // the first TLS on a new connection is that of a secure proxy
  HeadParser head_;
  std::int64_t bytesToCome_ = -1;
  bool bodyStarted_ = false;
  std::int64_t bodyBytes_ = 0;  // decoded
  std::unique_ptr<ContentDecoder> decoder_;
  bool decoderDry_ = true;                       // it has given all that its input holds
  std::shared_ptr<const HTTPURLResponse> held_;  // an answer that may not be the outcome
  std::string heldBody_;                         // as it came, should it be after all
  bool heldBodyFull_ = false;
  bool challenged_ = false;  // the held answer asks for a name and password
  Handshake handshake_;
  std::shared_ptr<const TLSRecord> endOfBody_;  // of the connection whose end is that of the body
  std::optional<URLError> refusal_;             // why a callback of ours made libcurl stop
  std::optional<URLError> outcome_;             // of libcurl's part
};

}  // namespace tarn::detail

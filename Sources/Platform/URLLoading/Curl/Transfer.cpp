#include <Platform/URLLoading/Curl/Failure.hpp>
#include <Platform/URLLoading/Curl/Mailbox.hpp>
#include <Platform/URLLoading/Curl/Redirects.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

#include <algorithm>
#include <cmath>

namespace tarn::detail {

namespace {

Clock::duration clamped(TimeInterval interval) noexcept {
  constexpr TimeInterval longest{100.0 * 365 * 24 * 60 * 60};  // far from what would overflow
  return std::chrono::duration_cast<Clock::duration>(std::min(interval, longest));
}

bool isUsable(TimeInterval interval) noexcept {
  return interval.count() > 0;
}  // not for NaN either

// A request that was not given an interval of its own has the default one.
Clock::duration idleLimit(const URLRequest& request,
                          const URLSessionConfiguration& configuration) noexcept {
  constexpr TimeInterval fallback{60};
  const bool own = isUsable(request.timeoutInterval()) && request.timeoutInterval() != fallback;
  if (own) return clamped(request.timeoutInterval());
  const auto general = configuration.timeoutIntervalForRequest;
  return clamped(isUsable(general) ? general : fallback);
}

Clock::duration resourceLimit(const URLSessionConfiguration& configuration) noexcept {
  constexpr TimeInterval fallback{7.0 * 24 * 60 * 60};
  const auto limit = configuration.timeoutIntervalForResource;
  return clamped(isUsable(limit) ? limit : fallback);
}

}  // namespace

Transfer::Transfer(std::shared_ptr<CurlTask> task, std::shared_ptr<SessionCore> core)
    : task_(std::move(task)),
      core_(std::move(core)),
      idleLimit_(idleLimit(task_->originalRequest(), core_->configuration())),
      resourceDeadline_(core_->engine().now() + resourceLimit(core_->configuration())),
      request_(&task_->originalRequest()),
      bodyFile_(task_->bodyFile()),
      authenticator_(core_->credentials()),
      cache_(core_->cache(), core_->configuration().requestCachePolicy, !task_->isDownload()),
      lastProgress_(core_->engine().now()),
      handshake_(core_->engine(), *this) {}

Transfer::~Transfer() {
  if (queue_ && stage_ == Stage::queued && !hasSlot_) queue_->leave(*this);
  leaveConnection();
  core_->setAsking(*this, false);
  core_->engine().routes().remove(*this);
  core_->engine().timers().remove(*this);
}

void Transfer::begin(std::optional<URLRequest> first) {
  if (first) setRequest(std::move(*first));
  aim();
  guarded(&Transfer::enterQueue);
}

void Transfer::aim() {
  const URL& url = request_->url();
  auto origin = Origin::of(url);
  if (!origin) {
    const auto scheme = url.scheme();
    const bool http = scheme == "http" || scheme == "https";
    throw http ? error(URLError::badURL, "The address names no host.")
               : error(URLError::unsupportedURL, "The scheme is not http or https.");
  }
  queue_ = core_->queueOf(std::move(*origin));
  authenticator_.enter(url, this->origin(), core_->proxies());
}

void Transfer::setRequest(URLRequest request) {
  request_ = &task_->setCurrentRequest(std::move(request));
}

void Transfer::enterQueue() {
  completeRequest();
  if (cache_.begin(sentRequest(), origin(), bodyFile_ != nullptr)) return endWithKeptAnswer();
  stage_ = Stage::queued;
  core_->admit(*this);
  armTimer();
}

// What the session and the address add decides about a kept answer as the request's own does.
void Transfer::completeRequest() {
  completed_.reset();
  const auto& sessionFields = core_->configuration().httpAdditionalHeaders;
  auto login = authenticator_.authorizationOfAddress();
  if (sessionFields.empty() && !login) return;
  const bool elsewhere = Origin::of(task_->originalRequest().url()) != origin();
  auto completed = withSessionFields(*request_, sessionFields, elsewhere);
  if (login && !completed.value("Authorization")) {
    completed.setValue(std::move(*login), "Authorization");
  }
  completed_ = std::make_unique<const URLRequest>(std::move(completed));
}

void Transfer::start() noexcept {
  hasSlot_ = true;
  guarded(&Transfer::attach);
}

// libcurl takes the buffer from the heap for each transfer, where a large one, among all that is
// kept, costs a small transfer as much as a tenth of its time. A large body needs a large one, and
// so does HTTP/2: what libcurl reads from a connection at once has to fit in, or a suspended
// transfer holds up the others.
long Transfer::readBuffer() const noexcept {
  constexpr long small = 16 * 1024;
  constexpr long large = 64 * 1024;
  const bool isLarge = origin().secure || task_->isDownload() || queue_->lastBodySize() > large;
  return isLarge ? large : small;
}

void Transfer::attach() {
  stage_ = Stage::running;
  body_ = RequestBody::of(*request_, bodyFile_);
  auto handle =
      core_->handles().take({queue_, request_->httpMethod(), body_ != nullptr, readBuffer()});
  bodyOffset_ = 0;
  routesTried_ = core_->engine().routes().changes();
  triedAddresses_.clear();
  withoutRoute_ = false;
  configure(*handle);
  core_->attach(*this, handle->easy());
  handle_ = std::move(handle);
  lastProgress_ = core_->engine().now();
  armTimer();
}

// What libcurl keeps in a handle beyond its options, as the number of attempts and the last error
// of the system: the next transfer with the handle must not meet it. Nor is a buffer of half a
// megabyte to wait with it: where a connection is shared, libcurl does not free that of an upload.
bool Transfer::leavesNoTrace(CURLcode result) const noexcept {
  return result == CURLE_OK && !outcome_ && requestCount_ == 1 && triedAddresses_.empty() &&
         !(body_ && origin().secure) && !authenticator_.isInvolved() && !handle_->keepsFields();
}

void Transfer::leaveConnection(bool keepsHandle) noexcept {
  if (handle_) {
    handshake_.abandon(handle_->easy(), *core_);
    // libcurl forgets to free what it holds back for a paused transfer: here it gets rid of it.
    if (suspended_ || heldBack_) {
      discarding_ = true;
      curl_easy_pause(handle_->easy(), CURLPAUSE_CONT);
      discarding_ = false;
    }
    core_->detach(*this, handle_->easy());
  }
  if (keepsHandle) core_->handles().give(std::move(handle_));
  handle_.reset();
  body_.reset();
  try {
    if (std::exchange(hasSlot_, false)) core_->release(queue_);
  } catch (const std::bad_alloc&) {
    // The slot is free all the same; who waits for it starts with the next one that is given back.
  }
}

void Transfer::finish(std::optional<URLError> error) noexcept {
  task_->finish(std::move(error));  // destroys this object, and keeps itself
}

void Transfer::guarded(void (Transfer::*action)()) noexcept {
  try {
    (this->*action)();
  } catch (const URLError& failure) {
    finish(failure);
  } catch (const std::exception& failure) {
    finish(URLError(URLError::unknown, failure.what()));
  }
}

void Transfer::transferEnded(CURLcode result) noexcept {
  try {
    outcome_ = failureOf(result);
    if (outcome_ && !held_) holdRefusedTunnel();
  } catch (const std::exception& failure) {
    outcome_.emplace(URLError::unknown, failure.what());
  }
  leaveConnection(leavesNoTrace(result));
  if (stage_ == Stage::asking) return;
  if (handshake_.isToBeRepeated()) {
    if (!handshake_.isAsking()) guarded(&Transfer::repeatHandshake);
    return;
  }
  if (withoutRoute_ && core_->configuration().waitsForConnectivity) {
    return guarded(&Transfer::waitForRoute);
  }
  // A held answer is known by its head: whether its body, which nobody may want, came whole does
  // not matter.
  guarded(held_ ? &Transfer::askAboutHeld : &Transfer::conclude);
}

void Transfer::conclude() {
  if (!decoderDry_) {
    stage_ = Stage::draining;
    return armTimer();
  }
  if (!outcome_ && decoder_ && !decoder_->isComplete()) {
    outcome_ = error(URLError::cannotDecodeRawData, "The encoded body ends too early.");
  }
  if (!outcome_) {
    if (bodyStarted_) queue_->setLastBodySize(bodyBytes_);
    cache_.complete(sentRequest(), task_->heldData());
  }
  finish(std::move(outcome_));
}

std::optional<URLError> Transfer::failureOf(CURLcode result) {
  if (refusal_) return std::exchange(refusal_, std::nullopt);
  if (result == CURLE_OK) {
    if (!head_.complete()) {
      return error(URLError::networkConnectionLost,
                   "The connection ended within the answer's head.");
    }
    // Over HTTP/2 libcurl may call a paused transfer done and drop what it still kept.
    if (heldBack_) {
      return error(URLError::networkConnectionLost, "The end of the body was lost while paused.");
    }
    // Whoever can cut a connection can cut such a body, unless TLS itself says that it is whole.
    if (endOfBody_ && !endOfBody_->endedProperly) {
      return error(URLError::networkConnectionLost, "The connection was cut within the body.");
    }
    return std::nullopt;
  }
  long systemError = 0;
  long requestSize = 0;
  Failure failure;
  curl_easy_getinfo(handle_->easy(), CURLINFO_OS_ERRNO, &systemError);
  curl_easy_getinfo(handle_->easy(), CURLINFO_REQUEST_SIZE, &requestSize);
  curl_easy_getinfo(handle_->easy(), CURLINFO_HTTP_CONNECTCODE, &failure.proxyAnswer);
  failure.curlCode = result;
  failure.systemError = static_cast<int>(systemError);
  failure.requestSent = requestSize > 0;
  failure.answerStarted = head_.started();
  failure.lengthAnnounced = head_.complete() && head_.announcedLength().has_value();
  failure.bodyStarted = bodyStarted_;
  failure.curlText = handle_->errorText();
  failure.tls = handshake_.record();
  failure.withoutRoute = withoutRoute_ = lacksRoute(failure);
  return makeError(failure, request_->url().redacted());
}

URLError Transfer::error(std::int32_t code, std::string detail) const {
  return URLError(code, std::move(detail), request_->url().redacted());
}

// -- Reading on and off

void Transfer::setSuspended(bool suspended) {
  if (std::exchange(suspended_, suspended) == suspended) return;
  if (suspended) {
    // Before there is a connection this has no effect; the callbacks then hold the transfer up.
    if (handle_) curl_easy_pause(handle_->easy(), CURLPAUSE_ALL);
    return;
  }
  lastProgress_ = core_->engine().now();
  armTimer();
  // What had been found may be out of date by now.
  if (stage_ == Stage::kept) return guarded(&Transfer::enterQueue);
  if (stage_ == Stage::queued) core_->admitNext(queue_);
  if (handle_) guarded(&Transfer::unpause);
}

void Transfer::roomMade() {
  backedUp_ = false;
  lastProgress_ = core_->engine().now();
  armTimer();
  guarded(&Transfer::readOn);
}

void Transfer::readOn() {
  if (decoder_ && !decoderDry_ && !drainDecoder()) return finish(std::move(refusal_));
  if (!decoderDry_ || stage_ == Stage::asking) return;
  if (stage_ == Stage::draining) return conclude();
  if (handle_ && !suspended_) unpause();
}

// libcurl hands over at once what it held back, so this calls bodyPart() again.
void Transfer::unpause() {
  const auto result = curl_easy_pause(handle_->easy(), CURLPAUSE_CONT);
  if (refusal_) transferEnded(result);
}

bool Transfer::hasRoom() {
  backedUp_ = task_->isBackedUp();
  return !backedUp_;
}

// -- Time-outs

bool Transfer::idleTimeCounts() const noexcept {
  return stage_ == Stage::running && !suspended_ && !backedUp_ && !handshake_.isAsking();
}

void Transfer::armTimer() {
  auto deadline = resourceDeadline_;
  if (idleTimeCounts()) deadline = std::min(deadline, lastProgress_ + idleLimit_);
  if (handshake_.hasNews()) deadline = core_->engine().now();
  core_->engine().timers().set(*this, deadline);
}

// Progress only notes the time; the timer finds out here whether it has to wait on.
void Transfer::timerFired() noexcept {
  const auto now = core_->engine().now();
  if (now >= resourceDeadline_) {
    return finish(URLError(URLError::timedOut, "The load took longer than it may in all.",
                           request_->url().redacted()));
  }
  if (handshake_.hasNews()) return guarded(&Transfer::askHandshake);
  if (heldBodyFull_ && stage_ == Stage::running) return guarded(&Transfer::askAboutHeld);
  if (requestCount_ == 0) lastProgress_ = std::max(lastProgress_, core_->lastAsked(*queue_));
  if (idleTimeCounts() && now >= lastProgress_ + idleLimit_) {
    return finish(
        URLError(URLError::timedOut, "Nothing moved for too long.", request_->url().redacted()));
  }
  guarded(&Transfer::armTimer);
}

// -- Challenges

void Transfer::challengeAnswered(URLSessionAuthChallengeDisposition disposition,
                                 std::optional<URLCredential> credential) {
  if (stage_ == Stage::asking) return loginAnswered(disposition, std::move(credential));
  handshakeAnswered(disposition, std::move(credential));
}

void Transfer::loginAnswered(URLSessionAuthChallengeDisposition disposition,
                             std::optional<URLCredential> credential) {
  if (disposition == URLSessionAuthChallengeDisposition::cancelAuthenticationChallenge) {
    return finish(error(URLError::cancelled, "The challenge was cancelled."));
  }
  guarded(authenticator_.take(disposition, credential) ? &Transfer::sendAgain
                                                       : &Transfer::takeHeld);
}

// A proxy that wants to know who asks before it makes a tunnel does not let libcurl get to an
// answer.
void Transfer::holdRefusedTunnel() {
  long status = 0;
  curl_easy_getinfo(handle_->easy(), CURLINFO_HTTP_CONNECTCODE, &status);
  if (status != 407) return;
  HTTPHeaderFields fields;
  curl_header* field = nullptr;
  while ((field = curl_easy_nextheader(handle_->easy(), CURLH_CONNECT, -1, field)) != nullptr) {
    fields.add(field->name, field->value);
  }
  auto response =
      std::make_shared<const HTTPURLResponse>(request_->url(), 407, "HTTP/1.1", std::move(fields));
  challenged_ = authenticator_.isChallenge(*response, origin(), true);
  if (challenged_) held_ = std::move(response);
}

void Transfer::askLogin() {
  auto question = authenticator_.question(held_);
  if (!question) return sendAgain();
  stage_ = Stage::asking;
  task_->askChallenge(std::move(*question), false);
  armTimer();
}

// -- Redirects

void Transfer::askAboutHeld() {
  if (answer_) return follow();
  if (challenged_) return askLogin();
  askRedirect();
}

void Transfer::askRedirect() {
  // Its body is held as it came, encoded perhaps.
  const bool whole = !handle_ && !outcome_ && !decoder_;
  if (whole) cache_.complete(sentRequest(), Data(heldBody_));
  if (++redirectCount_ > mostRedirects) {
    return finish(error(URLError::httpTooManyRedirects, "Too many redirects."));
  }
  auto next = redirectedRequest(*request_, *held_);
  if (auto* impossible = std::get_if<URLError>(&next)) return finish(std::move(*impossible));
  auto& request = std::get<URLRequest>(next);
  // A body and its method go together.
  if (request.httpMethod() != request_->httpMethod()) bodyFile_ = nullptr;
  stage_ = Stage::asking;
  task_->askRedirect(held_, std::move(request));
  armTimer();
}

void Transfer::redirectAnswered(std::optional<URLRequest> request) {
  if (stage_ != Stage::asking) return;
  answer_ = std::move(request);
  guarded(answer_ ? &Transfer::follow : &Transfer::takeHeld);
}

void Transfer::follow() {
  leaveConnection();
  URLRequest next = std::move(*std::exchange(answer_, std::nullopt));
  setRequest(std::move(next));
  aim();
  sendAgain();
}

void Transfer::sendAgain() {
  leaveConnection();
  requestCount_ = 0;
  connecting_ = false;
  head_ = HeadParser();
  bodyStarted_ = false;
  bodyBytes_ = 0;
  heldBack_ = false;
  held_.reset();
  challenged_ = false;
  handshake_.reset();
  endOfBody_.reset();
  heldBody_.clear();
  heldBodyFull_ = false;
  decoder_.reset();
  decoderDry_ = true;
  bytesToCome_ = -1;
  bytesSent_ = 0;
  refusal_.reset();
  outcome_.reset();
  enterQueue();
}

void Transfer::takeHeld() {
  stage_ = Stage::running;
  // What a proxy says of a tunnel is no answer.
  if (challenged_ && !head_.complete()) return conclude();
  challenged_ = false;
  heldBodyFull_ = false;
  lastProgress_ = core_->engine().now();
  const auto body = std::exchange(heldBody_, {});
  publishResponse(std::exchange(held_, nullptr));
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(body.data());
  if (!body.empty() && !deliverBody(bytes, body.size())) {
    return finish(std::move(refusal_));
  }
  armTimer();
  if (!handle_) return conclude();
  if (!suspended_) unpause();
}

// -- Kept answers

void Transfer::endWithKeptAnswer() {
  stage_ = Stage::kept;
  if (suspended_) return armTimer();
  takeKeptAnswer();
  held_ ? askRedirect() : conclude();
}

void Transfer::takeKeptAnswer() {
  auto head = cache_.keptHead(request_->url());
  const Data body = request_->httpMethod() == "HEAD" ? Data() : cache_.keptBody();
  if (isRedirect(head->statusCode(), head->allHeaderFields())) {
    held_ = std::move(head);
    heldBody_ = body.view();
    return;
  }
  publishResponse(std::move(head));
  if (!body.empty()) task_->addData(body);
}

}  // namespace tarn::detail

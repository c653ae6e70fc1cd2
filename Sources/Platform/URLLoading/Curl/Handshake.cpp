#include <Platform/URLLoading/Curl/Failure.hpp>
#include <Platform/URLLoading/Curl/Handshake.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

#include <new>
#include <utility>

namespace tarn::detail {

bool Handshake::prepare(void* sslContext, const Origin& peer, bool isProxy) {
  if (record_) record_->giveUp();
  record_ = std::make_shared<TLSRecord>();
  record_->host = peer.host;
  record_->isProxy = isProxy;
  port_ = peer.port;
  record_->questioner = this;
  return configureTLSContext(sslContext, record_);
}

void Handshake::questionPosed(TLSRecord& record) noexcept {
  for (const auto& earlier : repeated_) record.answerAs(*earlier);
  if (record.question == TLSQuestion::none) return;
  // The delegate is asked as soon as libcurl has returned.
  news_ = true;
  engine_.timers().set(owner_, engine_.now());
}

URLAuthenticationChallenge Handshake::challenge() {
  news_ = false;
  URLProtectionSpace space;
  space.host = record_->host;
  space.isProxy = record_->isProxy;
  space.port = port_;
  if (record_->question == TLSQuestion::serverTrust) {
    space.authenticationMethod = URLProtectionSpace::AuthenticationMethod::serverTrust;
    space.serverTrust = SecTrust::create(record_->chain, record_->host);
  } else {
    space.authenticationMethod = URLProtectionSpace::AuthenticationMethod::clientCertificate;
    space.distinguishedNames = record_->authorities;
  }
  return {std::move(space)};
}

void Handshake::answer(URLSessionAuthChallengeDisposition disposition,
                       const std::optional<URLCredential>& credential) noexcept {
  const bool use =
      disposition == URLSessionAuthChallengeDisposition::useCredential && credential.has_value();
  try {
    if (record_->question == TLSQuestion::clientCertificate) {
      const auto* identity = use ? credential->identity() : nullptr;
      record_->present(identity != nullptr ? std::optional(*identity) : std::nullopt);
    } else if (use && credential->serverTrust()) {
      record_->trustServer();
    } else if (disposition == URLSessionAuthChallengeDisposition::rejectProtectionSpace) {
      record_->refuseServer();
    } else {
      record_->judgeServer();
    }
  } catch (const std::bad_alloc&) {
    record_->giveUp();
  }
}

void Handshake::repeat() { repeated_.push_back(std::exchange(record_, nullptr)); }

// What libcurl was told before does not matter: it looks at a handle again when the two differ.
void Handshake::nudge(CURL* easy) noexcept {
  curl_easy_pause(easy, CURLPAUSE_RECV);
  curl_easy_pause(easy, CURLPAUSE_CONT);
}

// A connection that is closed while its handshake stands still never gives the handshake's stack
// back.
void Handshake::abandon(CURL* easy, SessionCore& core) noexcept {
  if (!record_ || !record_->paused) return;
  record_->giveUp();
  nudge(easy);
  core.driveNow();
}

void Handshake::reset() noexcept {
  if (record_) record_->giveUp();
  record_.reset();
  repeated_.clear();
  news_ = false;
}

// -- The part of Transfer that has to do with it

std::optional<Origin> Transfer::secureProxy() const {
  const auto url = URL::parse(core_->proxies().proxyFor(origin()));
  return url && url->scheme() == "https" ? Origin::of(*url) : std::nullopt;
}

CURLcode Transfer::prepareTLS(void* context) {
  const auto proxy = std::exchange(meetsProxyNext_, false) ? secureProxy() : std::nullopt;
  const bool ready = handshake_.prepare(context, proxy ? *proxy : origin(), proxy.has_value());
  return ready ? CURLE_OK : CURLE_OUT_OF_MEMORY;
}

void Transfer::askHandshake() {
  core_->setAsking(*this, true);
  task_->askChallenge(handshake_.challenge(), true);
  armTimer();
}

void Transfer::handshakeAnswered(URLSessionAuthChallengeDisposition disposition,
                                 std::optional<URLCredential> credential) {
  if (!handshake_.isAsking()) return;
  if (disposition == URLSessionAuthChallengeDisposition::cancelAuthenticationChallenge) {
    return finish(error(URLError::cancelled, "The delegate cancelled the challenge."));
  }
  handshake_.answer(disposition, credential);
  core_->setAsking(*this, false);
  lastProgress_ = core_->engine().now();
  if (!handle_) return guarded(&Transfer::repeatHandshake);
  armTimer();
  Handshake::nudge(handle_->easy());
  if (suspended_) curl_easy_pause(handle_->easy(), CURLPAUSE_ALL);
}

// The connection on which the question came up is gone.
void Transfer::repeatHandshake() {
  if (!handshake_.isRefused()) {
    handshake_.repeat();
    outcome_.reset();
    return enterQueue();
  }
  Failure failure;
  failure.curlCode = CURLE_PEER_FAILED_VERIFICATION;
  failure.tls = handshake_.record();
  finish(makeError(failure, request_->url().redacted()));
}

}  // namespace tarn::detail

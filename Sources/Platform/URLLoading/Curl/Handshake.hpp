#pragma once

#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/URLLoading/Curl/Engine.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>
#include <Platform/URLLoading/URLAuthenticationChallenge.hpp>

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <vector>

namespace tarn::detail {

class SessionCore;

/// The TLS handshake of the connection that one transfer opens, and what it asks the delegate.
///
/// A handshake with a question stands still within libcurl, which knows nothing of it: nudge()
/// makes libcurl turn to it again, and the handle must not be taken from libcurl before. Where a
/// handshake can't stand still it fails instead, and the connection is made again with the answer.
class Handshake final : private TLSQuestioner {
 public:
  /// `owner` is woken when there is a question.
  Handshake(Engine& engine, Timer& owner) noexcept : engine_(engine), owner_(owner) {}
  ~Handshake() { reset(); }
  Handshake(const Handshake&) = delete;
  Handshake& operator=(const Handshake&) = delete;

  /// Sets up the TLS that libcurl is about to speak with `peer`, the server or a proxy on the way
  /// to it. False where memory ran out.
  bool prepare(void* sslContext, const Origin& peer, bool isProxy);
  /// Of the connection opened for the transfer; null for none.
  const TLSRecord* record() const noexcept { return record_.get(); }

  /// There is a question that the delegate has not been told of.
  bool hasNews() const noexcept { return news_; }
  /// There is a question, whether the delegate knows of it or not.
  bool isAsking() const noexcept { return record_ && record_->question != TLSQuestion::none; }
  /// It failed for want of an answer; once there is one, the connection has to be made again.
  bool isToBeRepeated() const noexcept { return record_ && record_->refusedToAsk; }
  /// The server is not trusted.
  bool isRefused() const noexcept {
    return record_ && record_->verified && record_->certificateError != 0;
  }

  /// The question for the delegate.
  URLAuthenticationChallenge challenge();
  void answer(URLSessionAuthChallengeDisposition disposition,
              const std::optional<URLCredential>& credential) noexcept;
  /// Before a connection is made again: what has been answered is not asked once more.
  void repeat();
  static void nudge(CURL* easy) noexcept;
  /// Before `easy` is taken from libcurl: brings a handshake that stands still to its end.
  void abandon(CURL* easy, SessionCore& core) noexcept;
  /// The transfer has done with the connection.
  void reset() noexcept;

 private:
  void questionPosed(TLSRecord& record) noexcept override;

  Engine& engine_;
  Timer& owner_;
  std::shared_ptr<TLSRecord> record_;
  int port_ = 0;  // of the record's host
  std::vector<std::shared_ptr<TLSRecord>>
      repeated_;  // failed for want of the answers they hold now
  bool news_ = false;
};

}  // namespace tarn::detail

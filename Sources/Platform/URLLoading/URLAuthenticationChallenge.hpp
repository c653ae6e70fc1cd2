#pragma once

#include <Platform/URLLoading/URLCredential.hpp>
#include <Platform/URLLoading/URLProtectionSpace.hpp>
#include <Platform/URLLoading/URLResponse.hpp>

#include <functional>
#include <memory>
#include <optional>

namespace tarn {

/// A question that a server or proxy puts before it lets a request through.
struct URLAuthenticationChallenge {
  URLProtectionSpace protectionSpace;
  /// What default handling would answer: a name and password that the session has used here
  /// before. Absent where there is none, and after it has failed once.
  std::optional<URLCredential> proposedCredential = std::nullopt;
  /// How many credentials the server has refused for this request so far.
  int previousFailureCount = 0;
  /// The answer that asks for a name and password; null for TLS.
  std::shared_ptr<const URLResponse> failureResponse = nullptr;
};

enum class URLSessionAuthChallengeDisposition {
  /// Go on with the credential; without one, as performDefaultHandling.
  useCredential = 0,
  /// As if there were no delegate: the system's anchors decide on a server, no certificate is sent,
  /// the proposed credential is used, or else the answer that asks is the outcome.
  performDefaultHandling = 1,
  /// The task fails with URLError::cancelled.
  cancelAuthenticationChallenge = 2,
  /// No answer to this challenge: as performDefaultHandling, without the proposed credential. A
  /// server is not trusted then.
  rejectProtectionSpace = 3,
};

/// Answers a challenge. To be called once, from any thread; a handler that is dropped instead
/// cancels the challenge, and a second call has no effect.
using URLChallengeHandler =
    std::function<void(URLSessionAuthChallengeDisposition, std::optional<URLCredential>)>;

}  // namespace tarn

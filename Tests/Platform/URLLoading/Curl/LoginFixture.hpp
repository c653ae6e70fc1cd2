#pragma once
#include <Platform/URLLoading/Detail/Authorization.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>

#include <optional>
#include <string>

namespace tarn::test {

using Disposition = URLSessionAuthChallengeDisposition;
using Method = URLProtectionSpace::AuthenticationMethod;
using detail::Login;

inline const Login alice{"alice", "p:a ss"};
inline constexpr const char* basicAlice = "Basic YWxpY2U6cDphIHNz";

/// Whether a request shows this name and password in answer to one of the challenges.
inline bool shows(const ReceivedRequest& request, const Login& login, const std::string& challenges,
                  const char* fieldName = "Authorization") {
  const auto field = request.header(fieldName);
  if (!field) return false;
  const auto shown = detail::parseAuthenticateField(*field);
  if (shown.size() != 1) return false;
  if (shown[0].scheme == "basic") {
    return *field == detail::basicAuthorization(login) &&
           challenges.find("Basic") != std::string::npos;
  }
  const auto offered = detail::parseAuthenticateField(challenges);
  for (const auto& challenge : offered) {
    if (challenge.scheme != "digest" ||
        challenge.parameter("nonce") != shown[0].parameter("nonce")) {
      continue;
    }
    const auto expected = detail::digestAuthorization(
        challenge, login, request.method,
        request.method == "CONNECT" ? request.target
                                    : std::string(shown[0].parameter("uri").value_or("")),
        shown[0].parameter("cnonce").value_or(""));
    if (expected == *field) return true;
  }
  return false;
}

/// A server that lets nobody in but alice.
struct GuardedServer : ScriptedServer {
  explicit GuardedServer(const std::string& challenges = "Basic realm=\"here\"") {
    setHandler([challenges](const ReceivedRequest& request) {
      if (shows(request, alice, challenges)) return Script().respond(200, {}, "welcome");
      return Script().respond(401, {{"WWW-Authenticate", challenges}}, "who are you?");
    });
  }
};

/// A delegate's part that gives always the same answer.
inline auto answering(Disposition disposition, std::optional<Login> login = std::nullopt) {
  return [disposition, login](URLSessionTask&, const URLAuthenticationChallenge&,
                              const URLChallengeHandler& reply) {
    if (!login) return reply(disposition, std::nullopt);
    reply(disposition, URLCredential(login->user, login->password));
  };
}

inline void answerAsAlice(RecordedSession& session) {
  session.delegate().onTaskChallenge = answering(Disposition::useCredential, alice);
}

}  // namespace tarn::test

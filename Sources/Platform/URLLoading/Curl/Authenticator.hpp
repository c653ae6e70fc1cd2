#pragma once

#include <Platform/URLLoading/Curl/CredentialStore.hpp>
#include <Platform/URLLoading/Curl/ProxySettings.hpp>
#include <Platform/URLLoading/Curl/RequestOptions.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLAuthenticationChallenge.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>

namespace tarn::detail {

/// Shows the names and passwords of one transfer to its server and to a proxy, and knows what to
/// ask the delegate where they want others.
///
/// On the loop thread only.
class Authenticator {
 public:
  explicit Authenticator(CredentialStore& store) noexcept : store_(store) {}

  /// A request to `url`, of that origin, comes next. Nothing that was shown so far is shown to it,
  /// except that user information of an address goes for the whole of its origin.
  void enter(const URL& url, const Origin& origin, const ProxySettings& proxies);

  /// Looks at the head of an answer: true where it asks for what a name and password may be, and
  /// the request may be sent again. `fromTunnel`: the proxy's answer to CONNECT.
  bool isChallenge(const HTTPURLResponse& answer, const Origin& origin, bool fromTunnel);
  /// What to ask the delegate after a challenge; nothing where there is an answer already.
  std::optional<URLAuthenticationChallenge> question(
      std::shared_ptr<const HTTPURLResponse> answer) const;
  /// The delegate's answer. False: the answer that asks is the outcome.
  bool take(URLSessionAuthChallengeDisposition disposition,
            const std::optional<URLCredential>& credential);

  /// What the field Authorization of a request says that has none itself: the user information of
  /// the address, shown before anybody asks. Nothing where there is none.
  std::optional<std::string> authorizationOfAddress() const;
  /// What the server is shown in that field in answer to its challenge, whatever the request has;
  /// empty before there was one.
  std::string authorization(const URLRequest& request) const;
  /// Whether names and passwords, or a proxy that might ask for them, have a part in the request.
  bool isInvolved() const noexcept {
    return proxy_ || (server_ && (server_->ofAddress || server_->shown));
  }
  /// Sets what the proxy is shown. The lines live as long as this object, until the next call.
  void configure(CURL* easy, const URLRequest& request, const Origin& origin);

 private:
  /// The server, or the proxy.
  struct Side {
    LoginSpace space;
    std::optional<Login> ofAddress;  // shown as basic before anybody asks
    std::optional<AuthenticateChallenge> challenge;
    std::optional<Login> proposed;  // for the challenge
    std::optional<Login> shown;     // in answer to the challenge
    bool answersItself = false;
    int challengeCount = 0;
    int failureCount = 0;
  };

  Side& server(const Origin& origin);
  bool refused(Side& side, AuthenticateChallenge challenge);
  void accepted(const Side& side);
  static std::string authorization(const Side& side, const std::string& method,
                                   const std::string& target);

  CredentialStore& store_;
  std::unique_ptr<Side> server_;  // null as long as there is nothing to show it
  std::unique_ptr<Side> proxy_;   // null where there is none
  Side* asking_ = nullptr;
  HeaderLines proxyLines_;
};

}  // namespace tarn::detail

#include <Platform/Types/UUID.hpp>
#include <Platform/URLLoading/Curl/Authenticator.hpp>

#include <algorithm>

namespace tarn::detail {

namespace {

using Method = URLProtectionSpace::AuthenticationMethod;

// A delegate that gives the same wrong password again and again comes to an end.
constexpr int mostChallenges = 16;

std::optional<Login> loginOf(const URL& url) {
  auto user = url.user();
  if (!user) return std::nullopt;
  return Login{std::move(*user), url.password().value_or("")};
}

// As libcurl reads the address of a proxy. Only an HTTP proxy asks in the terms of HTTP.
std::optional<URL> httpProxy(const std::string& text) {
  if (text.empty()) return std::nullopt;
  auto url = URL::parse(text.find("://") == std::string::npos ? "http://" + text : text);
  return url && Origin::of(*url) ? url : std::nullopt;
}

Origin proxyOrigin(const URL& url) {
  constexpr int defaultPort = 1080;  // libcurl's for http
  Origin origin = *Origin::of(url);
  if (!url.port() && !origin.secure) origin.port = defaultPort;
  return origin;
}

std::string tunnelTarget(const Origin& origin) {
  return origin.host + ":" + std::to_string(origin.port);
}

bool isStale(const AuthenticateChallenge& challenge) noexcept {
  return equalsIgnoringCase(challenge.parameter("stale").value_or(""), "true");
}

}  // namespace

void Authenticator::enter(const URL& url, const Origin& origin, const ProxySettings& proxies) {
  auto login = loginOf(url);
  if (!login && server_ && server_->space.origin == origin) login = std::move(server_->ofAddress);
  server_.reset();
  if (login) server(origin).ofAddress = std::move(login);
  proxy_.reset();
  asking_ = nullptr;
  const auto proxy = httpProxy(proxies.proxyFor(origin));
  if (!proxy) return;
  proxy_ = std::make_unique<Side>();
  proxy_->space.isProxy = true;
  proxy_->space.origin = proxyOrigin(*proxy);
  proxy_->ofAddress = loginOf(*proxy);
}

Authenticator::Side& Authenticator::server(const Origin& origin) {
  if (!server_) {
    server_ = std::make_unique<Side>();
    server_->space.origin = origin;
  }
  return *server_;
}

bool Authenticator::isChallenge(const HTTPURLResponse& answer, const Origin& origin,
                                bool fromTunnel) {
  const int status = answer.statusCode();
  asking_ = nullptr;
  // What is in a tunnel does not come from the proxy.
  const bool fromProxy = proxy_ && status == 407 && fromTunnel == origin.secure;
  if (status == 401) asking_ = &server(origin);
  if (fromProxy) asking_ = &*proxy_;
  if (proxy_ && !fromProxy) accepted(*proxy_);
  if (server_ && asking_ == nullptr && !fromProxy) accepted(*server_);
  if (asking_ == nullptr) return false;
  const auto field =
      answer.allHeaderFields().value(fromProxy ? "Proxy-Authenticate" : "WWW-Authenticate");
  const auto challenges = parseAuthenticateField(field.value_or(""));
  const auto* strongest = strongestChallenge(challenges);
  return strongest != nullptr && refused(*asking_, *strongest);
}

void Authenticator::accepted(const Side& side) {
  // What an address says goes for that address.
  if (side.shown && side.shown != side.ofAddress) store_.keep(side.space, *side.shown);
}

bool Authenticator::refused(Side& side, AuthenticateChallenge challenge) {
  if (++side.challengeCount > mostChallenges) return false;
  const bool isDigest = challenge.scheme == "digest";
  side.answersItself = false;
  if (side.shown && side.space.method == Method::httpDigest && isDigest && isStale(challenge)) {
    side.answersItself = true;  // only the nonce was too old
  } else if (side.shown) {
    store_.forget(side.space, *side.shown);
    ++side.failureCount;
  } else if (side.ofAddress && isDigest) {
    side.shown = side.ofAddress;
    side.answersItself = true;
  } else if (side.ofAddress) {
    ++side.failureCount;
  }
  side.space.method = isDigest ? Method::httpDigest : Method::httpBasic;
  side.space.realm = challenge.parameter("realm");
  side.challenge = std::move(challenge);
  side.proposed = store_.find(side.space);
  return true;
}

std::optional<URLAuthenticationChallenge> Authenticator::question(
    std::shared_ptr<const HTTPURLResponse> answer) const {
  const Side& side = *asking_;
  if (side.answersItself) return std::nullopt;
  URLAuthenticationChallenge challenge;
  challenge.protectionSpace.host = side.space.origin.host;
  challenge.protectionSpace.port = side.space.origin.port;
  challenge.protectionSpace.authenticationMethod = side.space.method;
  challenge.protectionSpace.isProxy = side.space.isProxy;
  challenge.protectionSpace.realm = side.space.realm;
  if (side.proposed) {
    challenge.proposedCredential.emplace(side.proposed->user, side.proposed->password);
  }
  challenge.previousFailureCount = side.failureCount;
  challenge.failureResponse = std::move(answer);
  return challenge;
}

bool Authenticator::take(URLSessionAuthChallengeDisposition disposition,
                         const std::optional<URLCredential>& credential) {
  Side& side = *asking_;
  std::optional<Login> login;
  if (disposition != URLSessionAuthChallengeDisposition::rejectProtectionSpace) {
    login = side.proposed;
  }
  if (disposition == URLSessionAuthChallengeDisposition::useCredential && credential &&
      credential->user() != nullptr) {
    login = Login{*credential->user(), *credential->password()};
  }
  if (!login) return false;
  side.shown = std::move(login);
  return true;
}

std::string Authenticator::authorization(const Side& side, const std::string& method,
                                         const std::string& target) {
  if (side.space.method == Method::httpBasic) return basicAuthorization(*side.shown);
  return digestAuthorization(*side.challenge, *side.shown, method, target, UUID().uuidString());
}

std::optional<std::string> Authenticator::authorizationOfAddress() const {
  if (!server_ || !server_->ofAddress) return std::nullopt;
  return basicAuthorization(*server_->ofAddress);
}

std::string Authenticator::authorization(const URLRequest& request) const {
  if (!server_ || !server_->shown) return {};
  return authorization(*server_, request.httpMethod(), requestTarget(request.url()));
}

void Authenticator::configure(CURL* easy, const URLRequest& request, const Origin& origin) {
  if (!proxy_ || !proxy_->shown) return;
  const bool tunnelled = origin.secure;
  const auto value = authorization(*proxy_, tunnelled ? "CONNECT" : request.httpMethod(),
                                   tunnelled ? tunnelTarget(origin) : requestTarget(request.url()));
  proxyLines_.reset(curl_slist_append(nullptr, ("Proxy-Authorization: " + value).c_str()));
  if (!proxyLines_) throw std::bad_alloc();
  setOption(easy, CURLOPT_PROXYHEADER, proxyLines_.get());
}

}  // namespace tarn::detail

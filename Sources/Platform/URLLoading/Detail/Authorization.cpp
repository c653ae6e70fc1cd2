#include <Platform/JSON/Detail/Base64.hpp>
#include <Platform/Trust/Detail/HexDigest.hpp>
#include <Platform/URLLoading/Detail/Authorization.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <algorithm>
#include <initializer_list>

namespace tarn::detail {

namespace {

struct DigestAlgorithm {
  std::string_view name;
  HashFunction function;
  bool ofSession;  // the hashed password is bound to the nonces
};

constexpr DigestAlgorithm digestAlgorithms[] = {
    {"SHA-256", HashFunction::sha256, false},
    {"SHA-256-sess", HashFunction::sha256, true},
    {"MD5", HashFunction::md5, false},
    {"MD5-sess", HashFunction::md5, true},
};

const DigestAlgorithm* algorithmOf(const AuthenticateChallenge& challenge) noexcept {
  const auto name = challenge.parameter("algorithm").value_or("MD5");
  const auto* found =
      std::find_if(std::begin(digestAlgorithms), std::end(digestAlgorithms),
                   [name](const auto& known) { return equalsIgnoringCase(known.name, name); });
  return found != std::end(digestAlgorithms) ? found : nullptr;
}

// Old servers name no quality of protection, and then want none of its fields.
bool namesProtection(const AuthenticateChallenge& challenge) noexcept {
  return !challenge.parameter("qop").value_or("").empty();
}

bool protectsAsWeCan(const AuthenticateChallenge& challenge) {
  if (!namesProtection(challenge)) return true;
  const auto offered = listItems(*challenge.parameter("qop"));
  return std::any_of(offered.begin(), offered.end(),
                     [](auto item) { return equalsIgnoringCase(item, "auth"); });
}

int strength(const AuthenticateChallenge& challenge) {
  if (challenge.scheme == "basic") return 1;
  if (challenge.scheme != "digest") return 0;
  const auto* algorithm = algorithmOf(challenge);
  if (algorithm == nullptr || !challenge.parameter("realm") || !challenge.parameter("nonce") ||
      !protectsAsWeCan(challenge)) {
    return 0;
  }
  return algorithm->function == HashFunction::sha256 ? 3 : 2;
}

// Without what would break out of the line.
std::string quoted(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < ' ') continue;
    if (c == '"' || c == '\\') result.push_back('\\');
    result.push_back(c);
  }
  return result += '"';
}

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string result;
  for (const auto part : parts) result.append(part).push_back(':');
  result.pop_back();
  return result;
}

}  // namespace

const AuthenticateChallenge* strongestChallenge(
    const std::vector<AuthenticateChallenge>& challenges) {
  const AuthenticateChallenge* best = nullptr;
  int bestStrength = 0;
  for (const auto& challenge : challenges) {
    if (const int offered = strength(challenge); offered > bestStrength) {
      best = &challenge;
      bestStrength = offered;
    }
  }
  return best;
}

std::string basicAuthorization(const Login& login) {
  const std::string text = login.user + ":" + login.password;
  return "Basic " + base64({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::string digestAuthorization(const AuthenticateChallenge& challenge, const Login& login,
                                std::string_view method, std::string_view target,
                                std::string_view clientNonce) {
  constexpr std::string_view count = "00000001";
  const auto* algorithm = algorithmOf(challenge);
  const auto realm = challenge.parameter("realm").value_or("");
  const auto nonce = challenge.parameter("nonce").value_or("");
  const bool withProtection = namesProtection(challenge);
  const auto hash = [algorithm](std::initializer_list<std::string_view> parts) {
    return hexDigest(algorithm->function, joined(parts));
  };
  auto secret = hash({login.user, realm, login.password});
  if (algorithm->ofSession) secret = hash({secret, nonce, clientNonce});
  const auto request = hash({method, target});
  const auto response = withProtection ? hash({secret, nonce, count, clientNonce, "auth", request})
                                       : hash({secret, nonce, request});

  std::string field = "Digest username=" + quoted(login.user) + ", realm=" + quoted(realm) +
                      ", nonce=" + quoted(nonce) + ", uri=" + quoted(target) +
                      ", response=" + quoted(response);
  if (challenge.parameter("algorithm")) field.append(", algorithm=").append(algorithm->name);
  if (const auto opaque = challenge.parameter("opaque")) field += ", opaque=" + quoted(*opaque);
  if (withProtection || algorithm->ofSession) field += ", cnonce=" + quoted(clientNonce);
  if (withProtection) field.append(", qop=auth, nc=").append(count);
  return field;
}

}  // namespace tarn::detail

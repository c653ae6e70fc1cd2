#include <Platform/Trust/Detail/TLSVerification.hpp>
#include <Platform/URLLoading/Curl/Failure.hpp>

#include <curl/curl.h>

#include <cerrno>

namespace tarn::detail {

namespace {

bool contains(std::string_view text, std::string_view part) noexcept {
  return text.find(part) != std::string_view::npos;
}

std::int32_t connectCode(const Failure& failure) noexcept {
  return failure.systemError == ETIMEDOUT ? URLError::timedOut : URLError::cannotConnectToHost;
}

// A server that wants a certificate refuses in several ways, over TLS 1.3 only after the handshake:
// 35, 52, 55 and 56.
// `otherwise` where it did not want one.
std::int32_t clientCertificateCode(const Failure& failure, std::int32_t otherwise) noexcept {
  const bool wanted =
      failure.tls != nullptr && failure.tls->clientCertificateRequested && !failure.answerStarted;
  if (!wanted) return otherwise;
  return failure.tls->identity ? URLError::clientCertificateRejected
                               : URLError::clientCertificateRequired;
}

std::int32_t receiveCode(const Failure& failure) noexcept {
  if (failure.proxyAnswer != 0 && failure.proxyAnswer / 100 != 2) {
    return URLError::httpProxyConnectionFailure;
  }
  // libcurl has one code for a broken connection and for an answer that can't be read.
  const bool unreadable = contains(failure.curlText, "hunk") ||
                          contains(failure.curlText, "Too large response headers");
  return unreadable ? URLError::cannotParseResponse
                    : clientCertificateCode(failure, URLError::networkConnectionLost);
}

std::int32_t certificateCode(const Failure& failure) noexcept {
  constexpr auto untrusted = URLError::serverCertificateUntrusted;
  if (failure.tls == nullptr) return untrusted;
  if (failure.tls->certificateError != 0) return failure.tls->errorCode();
  // libcurl looks at the host's name when the handshake is over. Before, the same code may mean
  // that the server refused our certificate.
  return failure.tls->established ? untrusted : clientCertificateCode(failure, untrusted);
}

std::int32_t handshakeCode(const Failure& failure) noexcept {
  // A broken signature comes as a fault of the protocol, with the certificate's own error on
  // record.
  if (failure.tls != nullptr && failure.tls->verified && failure.tls->certificateError != 0) {
    return failure.tls->errorCode();
  }
  return clientCertificateCode(failure, URLError::secureConnectionFailed);
}

std::int32_t truncatedCode(const Failure& failure) noexcept {
  return failure.lengthAnnounced && !failure.bodyStarted ? URLError::zeroByteResource
                                                         : URLError::networkConnectionLost;
}

std::string shortText(const Failure& failure, std::int32_t code) {
  if (failure.tls != nullptr && failure.tls->certificateError != 0 &&
      code == failure.tls->errorCode()) {
    return std::string("The server's certificate was refused: ") +
           failure.tls->certificateErrorText + ".";
  }
  return std::string(failure.curlText);
}

}  // namespace

std::int32_t errorCode(const Failure& failure) noexcept {
  if (failure.withoutRoute) return URLError::notConnectedToInternet;
  switch (failure.curlCode) {
    case CURLE_UNSUPPORTED_PROTOCOL:  // also an answer that is no HTTP/1.x
      return failure.requestSent ? URLError::cannotParseResponse : URLError::unsupportedURL;
    case CURLE_URL_MALFORMAT:
      return URLError::badURL;
    case CURLE_NOT_BUILT_IN:
      return URLError::unsupportedURL;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
      return URLError::httpProxyConnectionFailure;
    case CURLE_COULDNT_RESOLVE_HOST:
      return URLError::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
      return connectCode(failure);
    case CURLE_WEIRD_SERVER_REPLY:
      return URLError::cannotParseResponse;
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return URLError::networkConnectionLost;
    case CURLE_PARTIAL_FILE:
      return truncatedCode(failure);
    case CURLE_OUT_OF_MEMORY:
    case CURLE_BAD_FUNCTION_ARGUMENT:
      return failure.answerStarted ? URLError::cannotParseResponse : URLError::unknown;
    case CURLE_OPERATION_TIMEDOUT:
      return URLError::timedOut;
    case CURLE_SSL_CONNECT_ERROR:
      return handshakeCode(failure);
    case CURLE_ABORTED_BY_CALLBACK:
      return URLError::cancelled;
    case CURLE_TOO_MANY_REDIRECTS:
      return URLError::httpTooManyRedirects;
    case CURLE_GOT_NOTHING:
      return clientCertificateCode(failure, URLError::networkConnectionLost);
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return receiveCode(failure);
    case CURLE_SSL_CERTPROBLEM:
      return URLError::clientCertificateRejected;
    case CURLE_SSL_CLIENTCERT:
      return URLError::clientCertificateRequired;
    case CURLE_PEER_FAILED_VERIFICATION:
      return certificateCode(failure);
    case CURLE_WRITE_ERROR:
    case CURLE_BAD_CONTENT_ENCODING:
      return URLError::cannotDecodeRawData;
    case CURLE_FILESIZE_EXCEEDED:
      return URLError::dataLengthExceedsMaximum;
    case CURLE_READ_ERROR:
    case CURLE_SEND_FAIL_REWIND:
      return URLError::requestBodyStreamExhausted;
    case CURLE_LOGIN_DENIED:
    case CURLE_AUTH_ERROR:
      return URLError::userCancelledAuthentication;
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CIPHER:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
      return URLError::secureConnectionFailed;
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return URLError::serverCertificateUntrusted;
    case CURLE_FILE_COULDNT_READ_FILE:
      return URLError::fileDoesNotExist;
    default:
      return URLError::unknown;
  }
}

URLError makeError(const Failure& failure, std::string failingURL) {
  const auto code = errorCode(failure);
  auto text = shortText(failure, code);
  if (text.empty()) text = curl_easy_strerror(static_cast<CURLcode>(failure.curlCode));
  return URLError(code, std::move(text), std::move(failingURL));
}

}  // namespace tarn::detail

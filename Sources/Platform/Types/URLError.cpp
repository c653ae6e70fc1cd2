#include <Platform/Types/URLError.hpp>

#include <utility>

namespace tarn {
namespace {

const char* shortText(std::int32_t code) noexcept {
  switch (code) {
    case URLError::cancelled:
      return "cancelled";
    case URLError::badURL:
      return "bad URL";
    case URLError::timedOut:
      return "The request timed out.";
    case URLError::unsupportedURL:
      return "unsupported URL";
    case URLError::cannotFindHost:
      return "A server with the specified hostname could not be found.";
    case URLError::cannotConnectToHost:
      return "Could not connect to the server.";
    case URLError::networkConnectionLost:
      return "The network connection was lost.";
    case URLError::dnsLookupFailed:
      return "The name lookup failed.";
    case URLError::httpTooManyRedirects:
      return "too many HTTP redirects";
    case URLError::resourceUnavailable:
      return "resource unavailable";
    case URLError::notConnectedToInternet:
      return "There is no connection to the internet.";
    case URLError::redirectToNonExistentLocation:
      return "redirection to an unusable location";
    case URLError::badServerResponse:
      return "There was a bad response from the server.";
    case URLError::userCancelledAuthentication:
      return "The authentication was cancelled.";
    case URLError::userAuthenticationRequired:
      return "Authentication is required.";
    case URLError::zeroByteResource:
      return "zero byte resource";
    case URLError::cannotDecodeRawData:
      return "cannot decode raw data";
    case URLError::cannotDecodeContentData:
      return "cannot decode content data";
    case URLError::cannotParseResponse:
      return "cannot parse response";
    case URLError::requestBodyStreamExhausted:
      return "request body stream exhausted";
    case URLError::fileDoesNotExist:
      return "The requested file does not exist.";
    case URLError::fileIsDirectory:
      return "The requested file is a directory.";
    case URLError::noPermissionsToReadFile:
      return "There is no permission to read the requested file.";
    case URLError::dataLengthExceedsMaximum:
      return "resource exceeds maximum size";
    case URLError::secureConnectionFailed:
      return "A secure connection to the server could not be made.";
    case URLError::serverCertificateHasBadDate:
      return "The server's certificate has expired or a bad date.";
    case URLError::serverCertificateUntrusted:
      return "The server's certificate is not trusted.";
    case URLError::serverCertificateHasUnknownRoot:
      return "The server's certificate has an unknown root.";
    case URLError::serverCertificateNotYetValid:
      return "The server's certificate is not yet valid.";
    case URLError::clientCertificateRejected:
      return "The server did not accept the certificate.";
    case URLError::clientCertificateRequired:
      return "The server requires a client certificate.";
    case URLError::cannotCreateFile:
      return "cannot create file";
    case URLError::cannotOpenFile:
      return "cannot open file";
    case URLError::cannotCloseFile:
      return "cannot close file";
    case URLError::cannotWriteToFile:
      return "cannot write to file";
    case URLError::cannotRemoveFile:
      return "cannot remove file";
    case URLError::cannotMoveFile:
      return "cannot move file";
    case URLError::httpProxyConnectionFailure:
      return "There was a problem with the HTTP proxy.";
    default:
      return "unknown error";
  }
}

}  // namespace

URLError::URLError(std::int32_t code, std::string detail, std::string failingURL)
    : code_(code),
      texts_(std::make_shared<const Texts>(Texts{std::move(detail), std::move(failingURL)})) {}

std::string URLError::message() const {
  return texts_->detail.empty() ? shortText(code_) : texts_->detail;
}

std::map<std::string, AnyValue> URLError::userInfo() const {
  auto info = CodedError::userInfo();
  if (!failingURL().empty()) info.emplace("NSErrorFailingURLStringKey", failingURL());
  return info;
}

}  // namespace tarn

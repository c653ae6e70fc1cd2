#pragma once

#include <Platform/Types/Error.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace tarn {

/// A failure of URL loading, told by one of the codes below; its domain is "NSURLErrorDomain".
class URLError : public CodedError {
 public:
  static constexpr std::int32_t unknown = -998;
  static constexpr std::int32_t cancelled = -999;
  static constexpr std::int32_t badURL = -1000;
  static constexpr std::int32_t timedOut = -1001;
  static constexpr std::int32_t unsupportedURL = -1002;
  static constexpr std::int32_t cannotFindHost = -1003;
  static constexpr std::int32_t cannotConnectToHost = -1004;
  static constexpr std::int32_t networkConnectionLost = -1005;
  static constexpr std::int32_t dnsLookupFailed = -1006;
  static constexpr std::int32_t httpTooManyRedirects = -1007;
  static constexpr std::int32_t resourceUnavailable = -1008;
  static constexpr std::int32_t notConnectedToInternet = -1009;
  static constexpr std::int32_t redirectToNonExistentLocation = -1010;
  static constexpr std::int32_t badServerResponse = -1011;
  static constexpr std::int32_t userCancelledAuthentication = -1012;
  static constexpr std::int32_t userAuthenticationRequired = -1013;
  static constexpr std::int32_t zeroByteResource = -1014;
  static constexpr std::int32_t cannotDecodeRawData = -1015;
  static constexpr std::int32_t cannotDecodeContentData = -1016;
  static constexpr std::int32_t cannotParseResponse = -1017;
  static constexpr std::int32_t requestBodyStreamExhausted = -1021;
  static constexpr std::int32_t fileDoesNotExist = -1100;
  static constexpr std::int32_t fileIsDirectory = -1101;
  static constexpr std::int32_t noPermissionsToReadFile = -1102;
  static constexpr std::int32_t dataLengthExceedsMaximum = -1103;
  static constexpr std::int32_t secureConnectionFailed = -1200;
  static constexpr std::int32_t serverCertificateHasBadDate = -1201;
  static constexpr std::int32_t serverCertificateUntrusted = -1202;
  static constexpr std::int32_t serverCertificateHasUnknownRoot = -1203;
  static constexpr std::int32_t serverCertificateNotYetValid = -1204;
  static constexpr std::int32_t clientCertificateRejected = -1205;
  static constexpr std::int32_t clientCertificateRequired = -1206;
  static constexpr std::int32_t cannotCreateFile = -3000;
  static constexpr std::int32_t cannotOpenFile = -3001;
  static constexpr std::int32_t cannotCloseFile = -3002;
  static constexpr std::int32_t cannotWriteToFile = -3003;
  static constexpr std::int32_t cannotRemoveFile = -3004;
  static constexpr std::int32_t cannotMoveFile = -3005;
  static constexpr std::int32_t httpProxyConnectionFailure = 306;

  /// `detail` replaces the short text of the code; `failingURL` is kept for `userInfo()` and is to
  /// come without user information.
  explicit URLError(std::int32_t code, std::string detail = {}, std::string failingURL = {});
  // Only copies: a moved-from error would have no texts.
  URLError(const URLError&) noexcept = default;
  URLError& operator=(const URLError&) noexcept = default;
  ~URLError() override = default;

  std::string message() const override;
  std::string domain() const override { return "NSURLErrorDomain"; }
  std::int64_t code() const noexcept override { return code_; }
  /// Adds the failing URL, where there is one, under "NSErrorFailingURLStringKey".
  std::map<std::string, AnyValue> userInfo() const override;

  const std::string& failingURL() const noexcept { return texts_->failingURL; }

 private:
  struct Texts {
    std::string detail;
    std::string failingURL;
  };

  std::int32_t code_;
  std::shared_ptr<const Texts> texts_;  // shared by copies; never null
};

}  // namespace tarn

#include <Platform/Types/URLError.hpp>

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace tarn {
namespace {

struct Row {
  std::int32_t code;
  std::int32_t expected;
};

const Row rows[] = {
    {URLError::unknown, -998},
    {URLError::cancelled, -999},
    {URLError::badURL, -1000},
    {URLError::timedOut, -1001},
    {URLError::unsupportedURL, -1002},
    {URLError::cannotFindHost, -1003},
    {URLError::cannotConnectToHost, -1004},
    {URLError::networkConnectionLost, -1005},
    {URLError::dnsLookupFailed, -1006},
    {URLError::httpTooManyRedirects, -1007},
    {URLError::resourceUnavailable, -1008},
    {URLError::notConnectedToInternet, -1009},
    {URLError::redirectToNonExistentLocation, -1010},
    {URLError::badServerResponse, -1011},
    {URLError::userCancelledAuthentication, -1012},
    {URLError::userAuthenticationRequired, -1013},
    {URLError::zeroByteResource, -1014},
    {URLError::cannotDecodeRawData, -1015},
    {URLError::cannotDecodeContentData, -1016},
    {URLError::cannotParseResponse, -1017},
    {URLError::requestBodyStreamExhausted, -1021},
    {URLError::fileDoesNotExist, -1100},
    {URLError::fileIsDirectory, -1101},
    {URLError::noPermissionsToReadFile, -1102},
    {URLError::dataLengthExceedsMaximum, -1103},
    {URLError::secureConnectionFailed, -1200},
    {URLError::serverCertificateHasBadDate, -1201},
    {URLError::serverCertificateUntrusted, -1202},
    {URLError::serverCertificateHasUnknownRoot, -1203},
    {URLError::serverCertificateNotYetValid, -1204},
    {URLError::clientCertificateRejected, -1205},
    {URLError::clientCertificateRequired, -1206},
    {URLError::cannotCreateFile, -3000},
    {URLError::cannotOpenFile, -3001},
    {URLError::cannotCloseFile, -3002},
    {URLError::cannotWriteToFile, -3003},
    {URLError::cannotRemoveFile, -3004},
    {URLError::cannotMoveFile, -3005},
    {URLError::httpProxyConnectionFailure, 306},
};

TEST(URLErrorTests, EveryCodeHasItsNumberAndItsOwnText) {
  std::set<std::string> texts;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    const URLError error(row.code);
    EXPECT_EQ(error.code(), row.expected);
    EXPECT_EQ(error.domain(), "NSURLErrorDomain");
    EXPECT_EQ(error.what(), error.message());
    EXPECT_TRUE(texts.insert(error.message()).second) << error.message();
    EXPECT_EQ(error.message() == "unknown error", row.code == URLError::unknown);
  }
  EXPECT_EQ(texts.size(), std::size(rows));
  EXPECT_EQ(URLError(-5).message(), "unknown error");
}

TEST(URLErrorTests, DetailReplacesTheText) {
  EXPECT_EQ(URLError(URLError::timedOut, "no answer in 5 s").message(), "no answer in 5 s");
}

TEST(URLErrorTests, UserInfoCarriesTheFailingURL) {
  const URLError error(URLError::timedOut, "late", "http://h/");
  EXPECT_EQ(error.failingURL(), "http://h/");
  EXPECT_EQ(error.userInfo(),
            (std::map<std::string, AnyValue>{{"NSLocalizedDescription", "late"},
                                             {"NSErrorFailingURLStringKey", "http://h/"}}));
  EXPECT_EQ(URLError(URLError::timedOut, "late").userInfo(),
            (std::map<std::string, AnyValue>{{"NSLocalizedDescription", "late"}}));
}

TEST(URLErrorTests, SurvivesAsAnError) {
  const Error error = URLError(URLError::cancelled);
  EXPECT_EQ(error.code(), -999);
  EXPECT_EQ(error.domain(), "NSURLErrorDomain");
  ASSERT_NE(error.as<URLError>(), nullptr);
  EXPECT_EQ(error.message(), "cancelled");
}

}  // namespace
}  // namespace tarn

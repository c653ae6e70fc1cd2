#include <TarnService/Responses/FoundationError.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string_view>

namespace tarn {
namespace {

struct Row {
  std::int32_t code;
  std::string_view message;
};

constexpr Row rows[] = {
    {1, "Host error: Indicates that the DNS lookup failed."},
    {2,
     "Host error: Unknown error. Query the kCFGetAddrInfoFailureKey to get the value returned from "
     "getaddrinfo; lookup in netdb.h"},
    {100,
     "SOCKS error: The SOCKS server rejected access because it does not support connections with "
     "the requested SOCKS version.Query kCFSOCKSStatusCodeKey to recover the status code returned "
     "by the server"},
    {101,
     "SOCKS error: The version of SOCKS requested by the server is not supported. Query "
     "kCFSOCKSStatusCodeKey to recover the status code returned by the server. Query the "
     "kCFSOCKSVersionKey to find the version requested by the server."},
    {110, "SOCKSS4 error: Request rejected or failed by the server."},
    {111,
     "SOCKSS4 error: Request rejected because SOCKS server cannot connect to identd on the "
     "client."},
    {112,
     "SOCKSS4 error: Request rejected because the client program and identd report different "
     "user-ids."},
    {113, "SOCKSS4 error: The status code returned by the server is unknown."},
    {120, "SOCKSS5 error: The stream is not in a state that allows the requested operation."},
    {121, "SOCKSS5 error: The address type returned is not supported."},
    {122,
     "SOCKSS5 error: The SOCKS server refused the client connection because of bad login "
     "credentials."},
    {123,
     "SOCKSS5 error: The requested method is not supported. Query kCFSOCKSNegotiationMethodKey to "
     "find the method requested."},
    {124,
     "SOCKSS5 error: The client and server could not find a mutually agreeable authentication "
     "method."},
    {200,
     "FTP error: The server returned an unexpected status code. Query the kCFFTPStatusCodeKey to "
     "get the status code returned by the server"},
    {300, "HTTP error: The client and server could not agree on a supported authentication type."},
    {301,
     "HTTP error: The credentials provided for an authenticated connection were rejected by the "
     "server."},
    {302,
     "HTTP error: The connection to the server was dropped. This usually indicates a highly "
     "overloaded server."},
    {303, "HTTP error: The HTTP server response could not be parsed."},
    {304,
     "HTTP error: Too many HTTP redirects occurred before reaching a page that did not redirect "
     "the client to another page. This usually indicates a redirect loop."},
    {305, "HTTP error: The requested URL could not be retrieved."},
    {306, "HTTP error: A connection could not be established to the HTTP proxy."},
    {307,
     "HTTP error: The authentication credentials provided for logging into the proxy were "
     "rejected."},
    {308, "HTTP error: An error occurred with the proxy autoconfiguration file."},
    {309,
     "HTTP error: The authentication credentials provided by the proxy autoconfiguration file were "
     "rejected."},
    {310, "HTTP error: A connection could not be established to the HTTPS proxy."},
    {311,
     "HTTP error: The HTTPS proxy returned an unexpected status code, such as a 3xx redirect."},
    {-996, "CFURL/NSURL error: Background session is in use by another process."},
    {-997, "CFURL/NSURL error: Background session was disconnected."},
    {-998, "CFURL/NSURL error: An unknown error occurred."},
    {-999, "CFURL/NSURL error: The connection was cancelled."},
    {-1000, "CFURL/NSURL error: The connection failed due to a malformed URL."},
    {-1001, "CFURL/NSURL error: The connection timed out."},
    {-1002, "CFURL/NSURL error: The connection failed due to an unsupported URL scheme."},
    {-1003, "CFURL/NSURL error: The connection failed because the host could not be found."},
    {-1004,
     "CFURL/NSURL error: The connection failed because a connection cannot be made to the host."},
    {-1005, "CFURL/NSURL error: The connection failed because the network connection was lost."},
    {-1006, "CFURL/NSURL error: The connection failed because the DNS lookup failed."},
    {-1007, "CFURL/NSURL error: The HTTP connection failed due to too many redirects."},
    {-1008, "CFURL/NSURL error: The connection’s resource is unavailable."},
    {-1009,
     "CFURL/NSURL error: The connection failed because the device is not connected to the "
     "internet."},
    {-1010, "CFURL/NSURL error: The connection was redirected to a nonexistent location."},
    {-1011, "CFURL/NSURL error: The connection received an invalid server response."},
    {-1012,
     "CFURL/NSURL error: The connection failed because the user cancelled required "
     "authentication."},
    {-1013, "CFURL/NSURL error: The connection failed because authentication is required."},
    {-1014, "CFURL/NSURL error: The resource retrieved by the connection is zero bytes."},
    {-1015,
     "CFURL/NSURL error: The connection cannot decode data encoded with a known content encoding."},
    {-1016,
     "CFURL/NSURL error: The connection cannot decode data encoded with an unknown content "
     "encoding."},
    {-1017, "CFURL/NSURL error: The connection cannot parse the server’s response."},
    {-1018,
     "CFURL/NSURL error: The connection failed because international roaming is disabled on the "
     "device."},
    {-1019, "CFURL/NSURL error: The connection failed because a call is active."},
    {-1020,
     "CFURL/NSURL error: The connection failed because data use is currently not allowed on the "
     "device."},
    {-1021,
     "CFURL/NSURL error: The connection failed because its request’s body stream was exhausted."},
    {-1022,
     "CFURL/NSURL error: The resource could not be loaded because the App Transport Security "
     "policy requires the use of a secure connection."},
    {-1100, "File error: The file operation failed because the file does not exist."},
    {-1101, "File error: The file operation failed because the file is a directory."},
    {-1102,
     "File error: The file operation failed because it does not have permission to read the file."},
    {-1103, "File error: The file operation failed because the file is too large."},
    {-1104, "File error: The file operation failed because the file is outside of the safe area"},
    {-1200, "SSL error: The secure connection failed for an unknown reason."},
    {-1201,
     "SSL error: The secure connection failed because the server’s certificate has an invalid "
     "date."},
    {-1202,
     "SSL error: The secure connection failed because the server’s certificate is not trusted."},
    {-1203,
     "SSL error: The secure connection failed because the server’s certificate has an unknown "
     "root."},
    {-1204,
     "SSL error: The secure connection failed because the server’s certificate is not yet valid."},
    {-1205,
     "SSL error: The secure connection failed because the client’s certificate was rejected."},
    {-1206,
     "SSL error: The secure connection failed because the server requires a client certificate."},
    {-2000,
     "Download/File I/O error: The connection failed because it is being required to return a "
     "cached resource, but one is not available."},
    {-3000, "Download/File I/O error: The file cannot be created."},
    {-3001, "Download/File I/O error: The file cannot be opened."},
    {-3002, "Download/File I/O error: The file cannot be closed."},
    {-3003, "Download/File I/O error: The file cannot be written."},
    {-3004, "Download/File I/O error: The file cannot be removed."},
    {-3005, "Download/File I/O error: The file cannot be moved."},
    {-3006,
     "Download/File I/O error: The download failed because decoding of the downloaded data failed "
     "mid-stream."},
    {-3007,
     "Download/File I/O error: The download failed because decoding of the downloaded data failed "
     "to complete."},
    {-4000, "Cookie error: The cookie file cannot be parsed."},
    {-72000, "CFNet error: An unknown error occurred."},
    {-72001, "CFNet error: An attempt was made to use a name that is already in use."},
    {-72002, "CFNet error: Not used."},
    {-72003,
     "CFNet error: A new search could not be started because a search is already in progress."},
    {-72004, "CFNet error: A required argument was not provided or was not valid."},
    {-72005, "CFNet error: The search or service was cancelled."},
    {-72006, "CFNet error: Invalid data was passed to a CFNetServices function."},
    {-72007, "CFNet error: A search failed because it timed out."},
    {-73000,
     "CFNet error: An error from DNS discovery; look at kCFDNSServiceFailureKey to get the error "
     "number and interpret using dnssd.h"},
};

TEST(FoundationErrorTests, HasItsTextForEveryKnownCode) {
  std::set<std::int32_t> codes;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code);
    codes.insert(row.code);
    EXPECT_EQ(CFNetworkErrors(row.code).message(), row.message);
  }
  EXPECT_EQ(codes.size(), 84u);
}

TEST(FoundationErrorTests, IsUnknownForEveryOtherCodeAroundTheTable) {
  std::set<std::int32_t> known;
  for (const auto& row : rows) known.insert(row.code);
  const auto sweep = [&](std::int32_t from, std::int32_t to) {
    for (std::int32_t code = from; code <= to; ++code) {
      if (known.contains(code)) continue;
      ASSERT_EQ(CFNetworkErrors(code).message(), "CFNet unknown error: " + std::to_string(code));
    }
  };
  sweep(-73010, -71990);
  sweep(-4010, 1000);
}

TEST(FoundationErrorTests, NamesUnknownCodesInDecimal) {
  struct Unknown {
    std::int32_t code;
    std::string_view message;
  };
  constexpr Unknown unknown[] = {
      {0, "CFNet unknown error: 0"},
      {-1, "CFNet unknown error: -1"},
      {3, "CFNet unknown error: 3"},
      {312, "CFNet unknown error: 312"},
      {-995, "CFNet unknown error: -995"},
      {-1023, "CFNet unknown error: -1023"},
      {-1099, "CFNet unknown error: -1099"},
      {-1207, "CFNet unknown error: -1207"},
      {-1234, "CFNet unknown error: -1234"},
      {-3008, "CFNet unknown error: -3008"},
      {-72008, "CFNet unknown error: -72008"},
      {-73001, "CFNet unknown error: -73001"},
      {std::numeric_limits<std::int32_t>::min(), "CFNet unknown error: -2147483648"},
      {std::numeric_limits<std::int32_t>::max(), "CFNet unknown error: 2147483647"},
  };
  for (const auto& row : unknown) EXPECT_EQ(CFNetworkErrors(row.code).message(), row.message);
}

TEST(FoundationErrorTests, WritesTypographicApostrophes) {
  for (const std::int32_t code : {-1008, -1017, -1021, -1201, -1202, -1203, -1204, -1205}) {
    SCOPED_TRACE(code);
    const std::string message = CFNetworkErrors(code).message();
    EXPECT_NE(message.find("\xE2\x80\x99s "), std::string::npos) << message;
    EXPECT_EQ(message.find('\''), std::string::npos) << message;
  }
}

TEST(FoundationErrorTests, TravelsAsAnErrorWithItsDomainAndRawCode) {
  for (const std::int32_t code : {-1001, 302, 12345, std::numeric_limits<std::int32_t>::min()}) {
    SCOPED_TRACE(code);
    const CFNetworkErrors networkError(code);
    EXPECT_EQ(networkError.rawValue(), code);
    EXPECT_EQ(networkError.logMessage(), networkError.message());
    EXPECT_FALSE(networkError.additionalLogInfo().has_value());

    const Error error = networkError;
    EXPECT_EQ(error.domain(), "CFNetwork.CFNetworkErrors");
    EXPECT_EQ(error.code(), code);
    EXPECT_EQ(error.message(), networkError.message());
    EXPECT_EQ(error.userInfo().at("NSLocalizedDescription").description(), networkError.message());
    ASSERT_NE(error.as<CFNetworkErrors>(), nullptr);
    EXPECT_EQ(*error.as<CFNetworkErrors>(), networkError);
    EXPECT_NE(error.as<AppError>(), nullptr);
    EXPECT_NE(error.as<ErrorLoggable>(), nullptr);
  }
}

TEST(FoundationErrorTests, EqualsByItsCode) {
  EXPECT_EQ(CFNetworkErrors(-1001), CFNetworkErrors(-1001));
  EXPECT_FALSE(CFNetworkErrors(-1001) == CFNetworkErrors(-1002));
}

}  // namespace
}  // namespace tarn

#include <TarnService/Responses/HTTPStatus.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <unordered_set>

namespace tarn {
namespace {

struct Row {
  HTTPStatus::Case status;
  std::string_view name;
  std::int64_t code;
  bool isAcceptable;
};

constexpr bool yes = true;
constexpr bool no = false;

// In the order of declaration.
constexpr Row rows[] = {
    {HTTPStatus::continue_, "continue", 100, no},
    {HTTPStatus::switchingProtocols, "switchingProtocols", 101, no},
    {HTTPStatus::success, "success", 200, yes},
    {HTTPStatus::created, "created", 201, yes},
    {HTTPStatus::accepted, "accepted", 202, yes},
    {HTTPStatus::nonAuthoritativeInfo, "nonAuthoritativeInfo", 203, yes},
    {HTTPStatus::noContent, "noContent", 204, yes},
    {HTTPStatus::resetContent, "resetContent", 205, yes},
    {HTTPStatus::partialContent, "partialContent", 206, yes},
    {HTTPStatus::multipleChoices, "multipleChoices", 300, no},
    {HTTPStatus::movedPermanently, "movedPermanently", 301, no},
    {HTTPStatus::found, "found", 302, no},
    {HTTPStatus::seeOther, "seeOther", 303, no},
    {HTTPStatus::notModified, "notModified", 304, no},
    {HTTPStatus::useProxy, "useProxy", 305, no},
    {HTTPStatus::unused, "unused", 306, no},
    {HTTPStatus::temporaryRedirect, "temporaryRedirect", 307, no},
    {HTTPStatus::badRequest, "badRequest", 400, no},
    {HTTPStatus::unauthorized, "unauthorized", 401, no},
    {HTTPStatus::paymentRequired, "paymentRequired", 402, no},
    {HTTPStatus::forbidden, "forbidden", 403, no},
    {HTTPStatus::notFound, "notFound", 404, no},
    {HTTPStatus::methodNotAllowed, "methodNotAllowed", 405, no},
    {HTTPStatus::notAcceptable, "notAcceptable", 406, no},
    {HTTPStatus::proxyAuthenticationRequired, "proxyAuthenticationRequired", 407, no},
    {HTTPStatus::requestTimeout, "requestTimeout", 408, no},
    {HTTPStatus::conflict, "conflict", 409, no},
    {HTTPStatus::gone, "gone", 410, no},
    {HTTPStatus::lengthRequired, "lengthRequired", 411, no},
    {HTTPStatus::preconditionFailed, "preconditionFailed", 412, no},
    {HTTPStatus::requestEntityTooLarge, "requestEntityTooLarge", 413, no},
    {HTTPStatus::requestURITooLong, "requestURITooLong", 414, no},
    {HTTPStatus::unsupportedMediaType, "unsupportedMediaType", 415, no},
    {HTTPStatus::requestedRangeNotSatisfiable, "requestedRangeNotSatisfiable", 416, no},
    {HTTPStatus::expectationFailed, "expectationFailed", 417, no},
    {HTTPStatus::internalServerError, "internalServerError", 500, no},
    {HTTPStatus::notImplemented, "notImplemented", 501, no},
    {HTTPStatus::badGateway, "badGateway", 502, no},
    {HTTPStatus::serviceUnavailable, "serviceUnavailable", 503, no},
    {HTTPStatus::gatewayTimeout, "gatewayTimeout", 504, no},
    {HTTPStatus::httpVersionNotSupported, "httpVersionNotSupported", 505, no},
    {HTTPStatus::unknown, "unknown", 1000, no},
};

TEST(HTTPStatusTests, HasTheNameAndCodeOfEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const HTTPStatus status = row.status;
    EXPECT_EQ(status.rawValue(), row.code);
    EXPECT_EQ(status.description(), row.name);
  }
}

TEST(HTTPStatusTests, IsFoundByItsCode) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto status = HTTPStatus::fromRawValue(row.code);
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(*status, row.status);
    EXPECT_EQ(HTTPStatus::of(row.code), row.status);
  }
}

TEST(HTTPStatusTests, AcceptsExactly200To206) {
  for (const auto& row : rows) {
    EXPECT_EQ(HTTPStatus(row.status).isAcceptableByDefault(), row.isAcceptable) << row.name;
  }
}

TEST(HTTPStatusTests, RunsThroughTheCodesInTheOrderOfDeclaration) {
  ASSERT_EQ(std::size(rows), 42u);
  for (std::size_t position = 1; position < std::size(rows); ++position) {
    EXPECT_LT(rows[position - 1].status, rows[position].status) << rows[position].name;
  }
  // The same test by position, as one bit each: set where a status is not acceptable.
  std::uint64_t mask = 0;
  for (std::size_t position = 0; position < std::size(rows); ++position) {
    const bool isAcceptable = HTTPStatus(rows[position].status).isAcceptableByDefault();
    mask |= std::uint64_t{!isAcceptable} << position;
  }
  EXPECT_EQ(mask, 0x3fffffffe03u);
}

TEST(HTTPStatusTests, KnowsNoOtherCode) {
  std::set<std::int64_t> known;
  for (const auto& row : rows) known.insert(row.code);
  for (std::int64_t code = -1100; code <= 1100; ++code) {
    EXPECT_EQ(HTTPStatus::fromRawValue(code).has_value(), known.contains(code)) << code;
  }
  for (const std::int64_t code :
       {std::int64_t{102}, std::int64_t{207}, std::int64_t{308}, std::int64_t{418},
        std::int64_t{506}, std::int64_t{0}, std::int64_t{-200}, std::int64_t{999},
        std::int64_t{1001}, (std::int64_t{1} << 32) + 200, std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::int64_t>::max()}) {
    SCOPED_TRACE(code);
    EXPECT_FALSE(HTTPStatus::fromRawValue(code).has_value());
    EXPECT_EQ(HTTPStatus::of(code), HTTPStatus::unknown);
    EXPECT_FALSE(HTTPStatus::of(code).isAcceptableByDefault());
  }
}

TEST(HTTPStatusTests, UnknownHasACodeOfItsOwn) {
  EXPECT_EQ(HTTPStatus::fromRawValue(1000), HTTPStatus(HTTPStatus::unknown));
  EXPECT_EQ(HTTPStatus(HTTPStatus::unknown).rawValue(), 1000);
  EXPECT_FALSE(HTTPStatus(HTTPStatus::unknown).isAcceptableByDefault());
}

TEST(HTTPStatusTests, IsReadOffAnAnswer) {
  const auto statusOf = [](int code) {
    return status(HTTPURLResponse(URL("http://localhost/"), code, "HTTP/1.1", {}));
  };
  for (const auto& row : rows) EXPECT_EQ(statusOf(static_cast<int>(row.code)), row.status);
  for (const int code : {0, 102, 207, 308, 418, 506, 599, 999, 1001}) {
    EXPECT_EQ(statusOf(code), HTTPStatus::unknown) << code;
  }
}

TEST(HTTPStatusTests, IsAValueToCompareHashAndSwitchOver) {
  std::unordered_set<HTTPStatus> set;
  for (const auto& row : rows) set.insert(row.status);
  set.insert(HTTPStatus::of(404));
  EXPECT_EQ(set.size(), 42u);

  const HTTPStatus status = HTTPStatus::of(404);
  EXPECT_EQ(status, HTTPStatus::notFound);
  EXPECT_NE(status, HTTPStatus::gone);
  switch (status) {
    case HTTPStatus::notFound:
      break;
    default:
      FAIL();
  }
}

}  // namespace
}  // namespace tarn

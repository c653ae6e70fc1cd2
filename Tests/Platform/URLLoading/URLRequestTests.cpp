#include <Platform/URLLoading/Detail/SharedHeaderFields.hpp>

#include <gtest/gtest.h>

#include <optional>

namespace tarn {
namespace {

URLRequest someRequest() { return URLRequest(URL("https://example.com/")); }

TEST(URLRequest, HasTheUsualDefaults) {
  const auto request = someRequest();
  EXPECT_EQ(request.httpMethod(), "GET");
  EXPECT_EQ(request.timeoutInterval(), TimeInterval(60));
  EXPECT_EQ(request.cachePolicy(), URLRequest::CachePolicy::useProtocolCachePolicy);
  EXPECT_TRUE(request.allHTTPHeaderFields().empty());
  EXPECT_FALSE(request.httpBody());
  EXPECT_TRUE(request.allowsResend());
}

TEST(URLRequest, CopiesShareTheirHeaderFieldsUntilOneChangesThem) {
  auto request = someRequest();
  request.setAllHTTPHeaderFields({{"Accept", "*/*"}});
  auto copy = request;
  EXPECT_EQ(&copy.allHTTPHeaderFields(), &request.allHTTPHeaderFields());
  copy.setValue("text/plain", "Accept");
  copy.setValue("1", "X-Copy");
  EXPECT_EQ(request.allHTTPHeaderFields(), (URLRequest::HeaderFields{{"Accept", "*/*"}}));
  EXPECT_EQ(copy.allHTTPHeaderFields(),
            (URLRequest::HeaderFields{{"Accept", "text/plain"}, {"X-Copy", "1"}}));
  const auto moved = std::move(copy);
  EXPECT_EQ(moved.value("x-copy"), "1");
}

TEST(URLRequest, SharesTheHeaderFieldsOfOthersAsLongAsOneHasThem) {
  std::optional<URLRequest> first = someRequest();
  EXPECT_FALSE(detail::SharedHeaderFields(*first).shareWith(*first));  // there are none
  first->setValue("tea", "X-Shop");
  const detail::SharedHeaderFields fields(*first);
  URLRequest second = someRequest();
  EXPECT_TRUE(fields.shareWith(second));
  EXPECT_EQ(&second.allHTTPHeaderFields(), &first->allHTTPHeaderFields());
  first.reset();
  EXPECT_EQ(second.value("X-Shop"), "tea");
  second.setValue("coffee", "X-Shop");
  EXPECT_FALSE(fields.shareWith(second));
  EXPECT_EQ(second.value("X-Shop"), "coffee");
}

TEST(URLRequest, RefusesMethodsThatAreNoTokens) {
  auto request = someRequest();
  for (const std::string method :
       {"", "GET ", "GE T", "GET\r\nX: y", "G\tET", "GÄT", "GET/", "a:b"}) {
    SCOPED_TRACE(method);
    EXPECT_THROW(request.setHTTPMethod(method), InvalidRequestError);
    EXPECT_EQ(request.httpMethod(), "GET");
  }
  for (const std::string method : {"POST", "patch", "M-SEARCH", "x!#$%&'*+.^_`|~9"}) {
    SCOPED_TRACE(method);
    EXPECT_NO_THROW(request.setHTTPMethod(method));
    EXPECT_EQ(request.httpMethod(), method);
  }
}

TEST(URLRequest, RefusesHeaderFieldsThatBreakOutOfTheirLine) {
  const std::vector<std::pair<std::string, std::string>> bad{
      {"X", "a\r\nEvil: 1"},
      {"X", "a\nEvil: 1"},
      {"X", "a\rb"},
      {"X", std::string("a\0b", 3)},
      {"", "a"},
      {"X: y", "a"},
      {"X\r\nEvil", "a"},
      {"X Y", "a"},
      {"X:", "a"},
  };
  for (const auto& [name, value] : bad) {
    SCOPED_TRACE(name + "=" + value);
    auto request = someRequest();
    EXPECT_THROW(request.setValue(value, name), InvalidRequestError);
    EXPECT_THROW(request.setAllHTTPHeaderFields({{name, value}}), InvalidRequestError);
    EXPECT_TRUE(request.allHTTPHeaderFields().empty());
  }
  auto request = someRequest();
  EXPECT_NO_THROW(request.setValue("tab\tand \xE4 bytes", "X-Fine"));
}

TEST(URLRequest, ARefusalNamesTheFieldButNeverItsValue) {
  auto request = someRequest();
  try {
    request.setValue("secret\r\n", "Authorization");
    FAIL() << "not refused";
  } catch (const InvalidRequestError& error) {
    EXPECT_NE(error.message().find("Authorization"), std::string::npos);
    EXPECT_EQ(error.message().find("secret"), std::string::npos);
  }
}

TEST(URLRequest, FindsHeaderFieldsWhateverTheCaseAndKeepsTheirNames) {
  auto request = someRequest();
  request.setValue("1", "x-Custom");
  EXPECT_EQ(request.value("X-CUSTOM"), "1");
  EXPECT_EQ(request.value("X-Other"), std::nullopt);
  EXPECT_EQ(request.allHTTPHeaderFields().begin()->first, "x-Custom");
}

}  // namespace
}  // namespace tarn

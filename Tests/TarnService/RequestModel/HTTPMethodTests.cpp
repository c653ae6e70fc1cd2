#include <TarnService/RequestModel/HTTPMethod.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(HTTPMethodTests, NamesTheMethods) {
  EXPECT_EQ(HTTPMethod::get.rawValue, "GET");
  EXPECT_EQ(HTTPMethod::post.rawValue, "POST");
  EXPECT_EQ(HTTPMethod::put.rawValue, "PUT");
  EXPECT_EQ(HTTPMethod::patch.rawValue, "PATCH");
  EXPECT_EQ(HTTPMethod::delete_.rawValue, "DELETE");
}

TEST(HTTPMethodTests, IsMadeOfAnyText) {
  EXPECT_EQ(HTTPMethod("PURGE").rawValue, "PURGE");
  EXPECT_EQ(HTTPMethod("get").rawValue, "get");
  EXPECT_EQ(HTTPMethod("GET"), HTTPMethod::get);
  EXPECT_NE(HTTPMethod("get"), HTTPMethod::get);
}

}  // namespace
}  // namespace tarn

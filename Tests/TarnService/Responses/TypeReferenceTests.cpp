#include <TarnService/Responses/TypeReference.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace shop {

struct Article {
  struct Part {};
};
template <class T>
struct Page {};

}  // namespace shop

namespace tarn {
namespace {

TEST(TypeReferenceTests, IsKnownByItsUnqualifiedName) {
  EXPECT_EQ(TypeReference::of<shop::Article>().name(), "Article");
  EXPECT_EQ(TypeReference::of<shop::Article::Part>().name(), "Part");
  EXPECT_EQ(TypeReference::of<shop::Page<shop::Article>>().name(), "Page<Article>");
  EXPECT_EQ(TypeReference::of<std::string>().name(), "String");
  EXPECT_EQ(TypeReference::of<shop::Article>().description(), "Article");
}

TEST(TypeReferenceTests, EqualsByType) {
  EXPECT_EQ(TypeReference::of<shop::Article>(), TypeReference::of<shop::Article>());
  EXPECT_FALSE(TypeReference::of<shop::Article>() == TypeReference::of<shop::Article::Part>());
}

}  // namespace
}  // namespace tarn

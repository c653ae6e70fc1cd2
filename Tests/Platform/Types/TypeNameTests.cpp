#include <Platform/Types/TypeName.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace shop {

struct Item {
  struct Price {};
  virtual ~Item() = default;
};
struct Book : Item {};

template <class T>
struct Box {
  struct Lid {};
};

template <int Size>
struct Sized {};

namespace inner {
struct Deep {};
}  // namespace inner

template <class T>
auto localOf(T) {
  struct Local {};
  return Local();
}

}  // namespace shop

struct GlobalForTypeName {};

namespace tarn {

struct ResponseForTypeName {};
template <class T>
struct GenericForTypeName {};

inline auto localOfFunction() {
  struct GetUser {};
  return GetUser();
}

namespace {

struct Hidden {
  struct Within {};
};

struct Maker {
  static auto make(const std::string&, int) {
    struct Made {};
    return Made();
  }
  auto makeConst() const {
    struct Made {};
    return Made();
  }
};

struct Row {
  std::string_view unqualified;
  std::string_view qualified;
  const char* expectedUnqualified;
  const char* expectedQualified;
};

template <class T>
Row row(const char* unqualified, const char* qualified) {
  return {unqualifiedTypeName<T>(), qualifiedTypeName<T>(), unqualified, qualified};
}

TEST(TypeNameTests, NamesTypes) {
  struct LocalOfTest {};
  const Row rows[] = {
      row<ResponseForTypeName>("ResponseForTypeName", "TarnService.ResponseForTypeName"),
      row<GenericForTypeName<shop::Item>>("GenericForTypeName<Item>",
                                          "TarnService.GenericForTypeName<shop.Item>"),
      row<GenericForTypeName<std::vector<shop::Item>>>(
          "GenericForTypeName<vector<Item>>",
          "TarnService.GenericForTypeName<std.vector<shop.Item>>"),
      row<GenericForTypeName<std::string>>("GenericForTypeName<String>",
                                           "TarnService.GenericForTypeName<String>"),
      row<shop::Item>("Item", "shop.Item"),
      row<shop::Item::Price>("Price", "shop.Item.Price"),
      row<shop::inner::Deep>("Deep", "shop.inner.Deep"),
      row<shop::Box<shop::inner::Deep>>("Box<Deep>", "shop.Box<shop.inner.Deep>"),
      row<shop::Box<shop::Box<int>>>("Box<Box<int>>", "shop.Box<shop.Box<int>>"),
      row<shop::Box<shop::Item>::Lid>("Lid", "shop.Box<shop.Item>.Lid"),
      row<shop::Sized<4>>("Sized<4>", "shop.Sized<4>"),
      row<GlobalForTypeName>("GlobalForTypeName", "GlobalForTypeName"),
      row<Hidden>("Hidden", "TarnService.Hidden"),
      row<Hidden::Within>("Within", "TarnService.Hidden.Within"),
      row<shop::Box<Hidden>>("Box<Hidden>", "shop.Box<TarnService.Hidden>"),
      row<LocalOfTest>("LocalOfTest", "LocalOfTest"),
      row<shop::Box<LocalOfTest>>("Box<LocalOfTest>", "shop.Box<LocalOfTest>"),
      row<decltype(localOfFunction())>("GetUser", "GetUser"),
      row<decltype(Maker::make("", 1))>("Made", "Made"),
      row<decltype(Maker().makeConst())>("Made", "Made"),
      row<decltype(shop::localOf(shop::Item()))>("Local", "Local"),
      row<decltype(shop::localOf(std::map<std::string, int>()))>("Local", "Local"),
      row<std::string>("String", "String"),
      row<std::string_view>("string_view", "std.string_view"),
      row<bool>("bool", "bool"),
      row<int>("int", "int"),
      row<std::int64_t>("long", "long"),
      row<unsigned char>("unsigned char", "unsigned char"),
      row<double>("double", "double"),
      row<void>("void", "void"),
      row<const shop::Item*>("Item const*", "shop.Item const*"),
      row<std::vector<std::string>>("vector<String>", "std.vector<String>"),
      row<std::map<std::string, shop::Item>>("map<String, Item>", "std.map<String, shop.Item>"),
      row<std::unordered_map<std::string, int>>("unordered_map<String, int>",
                                                "std.unordered_map<String, int>"),
      row<std::set<int>>("set<int>", "std.set<int>"),
      row<std::optional<shop::Item>>("optional<Item>", "std.optional<shop.Item>"),
      row<std::unique_ptr<shop::Item>>("unique_ptr<Item>", "std.unique_ptr<shop.Item>"),
      row<std::pair<shop::Item, Hidden>>("pair<Item, Hidden>",
                                         "std.pair<shop.Item, TarnService.Hidden>"),
      row<std::function<void(shop::Item, int)>>("function<void (Item, int)>",
                                                "std.function<void (shop.Item, int)>"),
      row<std::function<shop::Item()>>("function<Item ()>", "std.function<shop.Item ()>"),
  };
  for (const auto& [unqualified, qualified, expectedUnqualified, expectedQualified] : rows) {
    SCOPED_TRACE(expectedQualified);
    EXPECT_EQ(unqualified, expectedUnqualified);
    EXPECT_EQ(qualified, expectedQualified);
  }
}

TEST(TypeNameTests, NamesTheDynamicTypeOfAnObject) {
  const shop::Book book;
  const shop::Item& item = book;
  EXPECT_EQ(qualifiedTypeName(typeid(item)), "shop.Book");
  EXPECT_EQ(unqualifiedTypeName(typeid(item)), "Book");
}

TEST(TypeNameTests, NameIsWorkedOutOnce) {
  EXPECT_EQ(unqualifiedTypeName<shop::Item>().data(), unqualifiedTypeName<shop::Item>().data());
  EXPECT_EQ(qualifiedTypeName<shop::Item>().data(), qualifiedTypeName<shop::Item>().data());
}

TEST(TypeNameTests, ReadsDemangledNames) {
  struct NameRow {
    const char* demangled;
    const char* unqualified;
    const char* qualified;
  };
  const NameRow nameRows[] = {
      {"int", "int", "int"},
      {"tarn", "tarn", "tarn"},
      {"tarn::TarnService", "TarnService", "TarnService.TarnService"},
      {"tarnish::Spoon", "Spoon", "tarnish.Spoon"},
      {"shop::tarn::Lake", "Lake", "shop.tarn.Lake"},
      {"tarn::detail::Part", "Part", "TarnService.detail.Part"},
      {"(anonymous namespace)::Item", "Item", "Item"},
      {"shop::(anonymous namespace)::Item", "Item", "shop.Item"},
      {"shop::(anonymous namespace)::a::(anonymous namespace)::Item", "Item", "shop.a.Item"},
      {"shop::f[abi:cxx11](int)::Local", "Local", "Local"},
      {"shop::f(int)::Local::Inner", "Inner", "Local.Inner"},
      {"void shop::f<shop::Item>(shop::Item)::Local", "Local", "Local"},
      {"shop::Maker::make() const::Local", "Local", "Local"},
      {"shop::Box<int>::operator()(int)::Local", "Local", "Local"},
      {"shop::f()::{lambda(int)#1}", "{lambda(int)#1}", "{lambda(int)#1}"},
      {"shop::Box<shop::f()::Local>", "Box<Local>", "shop.Box<Local>"},
      {"shop::Box<(anonymous namespace)::Item>", "Box<Item>", "shop.Box<Item>"},
      {"shop::Box<shop::Box<shop::Item> >", "Box<Box<Item>>", "shop.Box<shop.Box<shop.Item>>"},
      {"std::string", "String", "String"},
  };
  for (const auto& [demangled, unqualified, qualified] : nameRows) {
    SCOPED_TRACE(demangled);
    EXPECT_EQ(detail::unqualifiedName(demangled), unqualified);
    EXPECT_EQ(detail::qualifiedName(demangled), qualified);
  }
}

TEST(TypeNameTests, UnusualTextIsHandled) {
  const char* rows[] = {"",         "<",       ">",
                        "(",        ")",       "::",
                        "a<b",      "a<>>b",   "(anonymous namespace)",
                        "a<)>b",    "a<(>)b",  "{a<b>}",
                        "[abi",     "a,b>c",   "a<,,,>::b<,",
                        "<<<<((((", "))))>>>>"};
  for (const char* text : rows) {
    SCOPED_TRACE(text);
    EXPECT_LE(detail::unqualifiedName(text).size(), 2 * std::string_view(text).size());
    EXPECT_LE(detail::qualifiedName(text).size(), 2 * std::string_view(text).size());
  }
}

}  // namespace
}  // namespace tarn

#include <Platform/Types/Error.hpp>
#include <Platform/Types/TypeName.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace shop {

class OutOfStock : public tarn::CodedError {
 public:
  explicit OutOfStock(std::string item) : item_(std::move(item)) {}
  std::string message() const override { return item_ + " is out of stock"; }
  std::int64_t code() const noexcept override { return 7; }

 private:
  std::string item_;
};

class SoldOut final : public OutOfStock {
 public:
  SoldOut() : OutOfStock("tea") {}
  std::string domain() const override { return "shop"; }
  std::map<std::string, tarn::AnyValue> userInfo() const override { return {{"count", 3}}; }
};

// Its object lives as long as the count says.
class Counted : public std::runtime_error {
 public:
  Counted() : std::runtime_error("counted") { ++count; }
  Counted(const Counted& other) : std::runtime_error(other) { ++count; }
  ~Counted() override { --count; }

  static inline std::atomic<int> count = 0;
};

class Failing : public tarn::CodedError {
 public:
  std::string message() const override { throw std::bad_alloc(); }
  std::int64_t code() const noexcept override { return 0; }
};

}  // namespace shop

namespace tarn {
namespace {

static_assert(!std::is_constructible_v<Error, std::exception>);
static_assert(!std::is_constructible_v<Error, const CodedError&>);
static_assert(!std::is_constructible_v<Error, int>);
static_assert(!std::is_default_constructible_v<Error>);
static_assert(std::is_convertible_v<shop::OutOfStock, Error>);

// The error of a catch block around `action`.
template <class Action>
Error caught(const Action& action) {
  try {
    action();
  } catch (...) {
    return Error::current();
  }
  throw std::logic_error("nothing was thrown");
}

TEST(ErrorTests, CodedErrorSpeaksForItself) {
  const Error rows[] = {Error(shop::OutOfStock("tea")),
                        caught([] { throw shop::OutOfStock("tea"); })};
  for (const auto& error : rows) {
    EXPECT_EQ(error.message(), "tea is out of stock");
    EXPECT_EQ(error.localizedDescription(), "tea is out of stock");
    EXPECT_EQ(error.domain(), "shop.OutOfStock");
    EXPECT_EQ(error.code(), 7);
    EXPECT_EQ(error.userInfo(),
              (std::map<std::string, AnyValue>{{"NSLocalizedDescription", "tea is out of stock"}}));
  }
}

TEST(ErrorTests, OverridesOfTheDynamicTypeCount) {
  const Error rows[] = {Error(shop::SoldOut()), caught([] { throw shop::SoldOut(); })};
  for (const auto& error : rows) {
    EXPECT_EQ(error.domain(), "shop");
    EXPECT_EQ(error.message(), "tea is out of stock");
    EXPECT_EQ(error.userInfo(), (std::map<std::string, AnyValue>{{"count", 3}}));
  }
}

TEST(ErrorTests, PlainExceptionsGetDefaults) {
  const Error rows[] = {Error(std::out_of_range("far")),
                        caught([] { throw std::out_of_range("far"); })};
  for (const auto& error : rows) {
    EXPECT_EQ(error.message(), "far");
    EXPECT_EQ(error.domain(), "std.out_of_range");
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.userInfo(),
              (std::map<std::string, AnyValue>{{"NSLocalizedDescription", "far"}}));
  }
}

TEST(ErrorTests, SystemErrorsGiveCategoryAndValue) {
  const Error error = std::system_error(std::make_error_code(std::errc::permission_denied), "open");
  EXPECT_EQ(error.domain(), "generic");
  EXPECT_EQ(error.code(), EACCES);
  EXPECT_NE(error.message().find("open"), std::string::npos);
}

TEST(ErrorTests, OtherThrownValuesAreUnknownExceptions) {
  struct Any {};
  const Error rows[] = {caught([] { throw 42; }), caught([] { throw std::string("text"); }),
                        caught([] { throw Any(); })};
  for (const auto& error : rows) {
    EXPECT_EQ(error.message(), "unknown exception");
    EXPECT_EQ(error.domain(), "TarnService.UnknownException");
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.as<CodedError>(), nullptr);
  }
  EXPECT_THROW(rows[0].raise(), int);
  EXPECT_THROW(rows[1].raise(), std::string);
  EXPECT_THROW(rows[2].raise(), Any);
}

TEST(ErrorTests, CurrentOutsideOfACatchBlockIsNeverEmpty) {
  const Error error = Error::current();
  EXPECT_EQ(error.message(), "unknown exception");
  EXPECT_THROW(error.raise(), std::exception);
}

TEST(ErrorTests, FindsTheObjectUnderItsOwnClassAndItsBases) {
  for (const Error& error : {Error(shop::SoldOut()), caught([] { throw shop::SoldOut(); })}) {
    EXPECT_NE(error.as<shop::SoldOut>(), nullptr);
    EXPECT_NE(error.as<shop::OutOfStock>(), nullptr);
    EXPECT_NE(error.as<CodedError>(), nullptr);
    EXPECT_NE(error.as<std::exception>(), nullptr);
    EXPECT_EQ(error.as<std::runtime_error>(), nullptr);
  }
}

TEST(ErrorTests, CurrentKeepsTheThrownObjectItself) {
  const std::exception* thrown = nullptr;
  Error kept = shop::OutOfStock("placeholder");
  try {
    throw shop::SoldOut();
  } catch (const std::exception& error) {
    thrown = &error;
    kept = Error::current();
  }
  EXPECT_EQ(kept.as<std::exception>(), thrown);
  EXPECT_NE(kept.as<shop::SoldOut>(), nullptr)
      << "a handle made from the base class would have lost it";
}

TEST(ErrorTests, CurrentWorksThroughNestedCatchBlocks) {
  try {
    throw shop::OutOfStock("outer");
  } catch (...) {
    EXPECT_EQ(caught([] { throw shop::OutOfStock("inner"); }).message(), "inner is out of stock");
    EXPECT_EQ(Error::current().message(), "outer is out of stock");
  }
}

TEST(ErrorTests, RaiseThrowsTheOriginal) {
  for (const Error& error : {Error(shop::SoldOut()), caught([] { throw shop::SoldOut(); })}) {
    EXPECT_THROW(error.raise(), shop::SoldOut);
    EXPECT_THROW(error.raise(), shop::SoldOut) << "again";
    const Error again = caught([&] { error.raise(); });
    EXPECT_NE(again.as<shop::SoldOut>(), nullptr);
  }
}

TEST(ErrorTests, ObjectLivesAsLongAsACopyOfTheHandle) {
  ASSERT_EQ(shop::Counted::count, 0);
  for (const bool isThrown : {false, true}) {
    std::optional<Error> copy;
    {
      const Error error = isThrown ? caught([] { throw shop::Counted(); }) : Error(shop::Counted());
      copy = error;
      EXPECT_EQ(copy->as<shop::Counted>(), error.as<shop::Counted>());
    }
    EXPECT_EQ(shop::Counted::count, 1);
    EXPECT_EQ(copy->message(), "counted");
    copy.reset();
    EXPECT_EQ(shop::Counted::count, 0);
  }
}

TEST(ErrorTests, MovedFromHandleStaysUsable) {
  Error error = shop::OutOfStock("tea");
  const Error moved = std::move(error);
  EXPECT_EQ(error.message(),
            moved.message());  // NOLINT(bugprone-use-after-move): this is what is tested
}

TEST(ErrorTests, HandleIsTakenFromANamedError) {
  const shop::OutOfStock named("tea");
  const Error error = named;
  EXPECT_EQ(error.message(), named.message());
  EXPECT_NE(error.as<shop::OutOfStock>(), &named);
}

TEST(ErrorTests, OneErrorIsReadAndDroppedOnSeveralThreads) {
  for (int round = 0; round < 50; ++round) {
    std::vector<std::thread> threads;
    {
      const Error error = caught([] { throw shop::OutOfStock("tea"); });
      for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([copy = error] {
          EXPECT_EQ(copy.message(), "tea is out of stock");
          EXPECT_STREQ(copy.as<std::exception>()->what(), "tea is out of stock");
        });
      }
    }
    for (auto& thread : threads) thread.join();
  }
}

TEST(ErrorTests, RaisedOnSeveralThreads) {
  const Error error = caught([] { throw shop::OutOfStock("tea"); });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([copy = error] {
      for (int round = 0; round < 50; ++round) EXPECT_THROW(copy.raise(), shop::OutOfStock);
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(CodedErrorTests, WhatIsTheMessage) {
  const shop::OutOfStock error("tea");
  const char* text = error.what();
  EXPECT_STREQ(text, "tea is out of stock");
  EXPECT_EQ(error.what(), text);
}

TEST(CodedErrorTests, CopyAndAssignmentMakeTheirOwnText) {
  shop::OutOfStock first("tea");
  EXPECT_STREQ(first.what(), "tea is out of stock");
  const shop::OutOfStock copy = first;
  EXPECT_NE(copy.what(), first.what());
  EXPECT_STREQ(copy.what(), "tea is out of stock");
  first = shop::OutOfStock("milk");
  EXPECT_STREQ(first.what(), "milk is out of stock");
  const auto& alias = first;
  first = alias;
  EXPECT_STREQ(first.what(), "milk is out of stock");
}

TEST(CodedErrorTests, WhatNeverThrows) {
  EXPECT_STREQ(shop::Failing().what(), "an error whose message could not be made");
}

TEST(CodedErrorTests, DomainIsTheQualifiedTypeName) {
  EXPECT_EQ(shop::OutOfStock("tea").domain(), qualifiedTypeName<shop::OutOfStock>());
}

}  // namespace
}  // namespace tarn

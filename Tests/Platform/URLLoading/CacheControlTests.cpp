#include <Platform/URLLoading/Detail/CacheControl.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/HTTPDate.hpp>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace tarn::test {
namespace {

using detail::CacheControl;
using std::chrono::seconds;

const seconds longest{2147483648};

TEST(CacheControl, ReadsDeltaSeconds) {
  struct Row {
    const char* text;
    std::optional<seconds> value;
  };
  for (const auto& row : std::vector<Row>{{"0", seconds(0)},
                                          {"007", seconds(7)},
                                          {"2147483647", seconds(2147483647)},
                                          {"2147483648", longest},
                                          {"2147483649", longest},
                                          {"99999999999999999999999999", longest},
                                          {"", {}},
                                          {"-1", {}},
                                          {"+1", {}},
                                          {"1.5", {}},
                                          {"1 ", {}},
                                          {"x", {}}}) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(detail::parseDeltaSeconds(row.text), row.value);
  }
}

struct Flags {
  bool noStore = false;
  bool noCache = false;
  bool mustRevalidate = false;
  bool onlyIfCached = false;
  bool isPublic = false;
  bool isPrivate = false;

  friend bool operator==(const Flags&, const Flags&) = default;
};

TEST(CacheControl, ReadsFlags) {
  struct Row {
    const char* text;
    Flags flags;
  };
  for (const auto& row : std::vector<Row>{
           {"", {}},
           {" , ,", {}},
           {"no-store", {true, false, false, false, false, false}},
           {"No-Cache", {false, true, false, false, false, false}},
           {"no-cache=\"X-A, no-store\"", {false, true, false, false, false, false}},
           {"no-cache=X-A", {false, true, false, false, false, false}},
           {"must-revalidate ,public", {false, false, true, false, true, false}},
           {"only-if-cached", {false, false, false, true, false, false}},
           {"private=\"X-A\"", {false, false, false, false, false, true}},
           {"x=\"a\\\", no-store\", no-cache", {false, true, false, false, false, false}},
           {"no-stores, xno-cache, \"no-store\", proxy-revalidate, immutable", {}}}) {
    SCOPED_TRACE(row.text);
    const auto control = CacheControl::parse(row.text);
    const Flags flags{control.noStore,      control.noCache,  control.mustRevalidate,
                      control.onlyIfCached, control.isPublic, control.isPrivate};
    EXPECT_EQ(flags, row.flags);
  }
}

TEST(CacheControl, ReadsTimes) {
  struct Row {
    const char* text;
    std::optional<seconds> maxAge;
    std::optional<seconds> minFresh;
    std::optional<seconds> maxStale;
  };
  for (const auto& row : std::vector<Row>{
           {"max-age=5", seconds(5), {}, {}},
           {"max-age = \"5\" ", seconds(5), {}, {}},
           {"max-age=5, max-age=6", seconds(5), {}, {}},
           {"max-age", seconds(0), {}, {}},
           {"max-age=", seconds(0), {}, {}},
           {"max-age=\"5", seconds(0), {}, {}},
           {"max-age=x, max-age=5", seconds(0), {}, {}},
           {"s-maxage=5", {}, {}, {}},
           {"min-fresh=5", {}, seconds(5), {}},
           {"min-fresh", {}, longest, {}},
           {"max-stale", {}, {}, longest},
           {"max-stale, max-stale=5", {}, {}, longest},
           {"max-stale=5, max-stale", {}, {}, seconds(5)},
           {"max-stale=", {}, {}, seconds(0)},
           {"max-age=1,min-fresh=2,max-stale=3", seconds(1), seconds(2), seconds(3)}}) {
    SCOPED_TRACE(row.text);
    const auto control = CacheControl::parse(row.text);
    EXPECT_EQ(control.maxAge, row.maxAge);
    EXPECT_EQ(control.minFresh, row.minFresh);
    EXPECT_EQ(control.maxStale, row.maxStale);
  }
}

TEST(ListItems, AreSplitAtCommasOutsideOfQuotes) {
  using Items = std::vector<std::string_view>;
  EXPECT_EQ(detail::listItems(" a ,, b="
                              "\"c,d\" ,e"),
            (Items{"a", "b=\"c,d\"", "e"}));
  EXPECT_EQ(detail::listItems("\"a\\\",b\",c"), (Items{"\"a\\\",b\"", "c"}));
  EXPECT_EQ(detail::listItems("a,\"b,c"), (Items{"a", "\"b,c"}));
  EXPECT_EQ(detail::listItems("\"\\"), (Items{"\"\\"}));
  EXPECT_EQ(detail::listItems(" , "), Items());
}

TEST(HTTPDate, IsReadInThreeForms) {
  struct Row {
    const char* text;
    std::optional<std::int64_t> seconds;
  };
  const detail::WallTime now{seconds(1'767'225'600)};  // 2026
  for (const auto& row :
       std::vector<Row>{{"Sun, 06 Nov 1994 08:49:37 GMT", 784111777},
                        {"Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
                        {"Sun Nov  6 08:49:37 1994", 784111777},
                        {"Sun Nov 16 08:49:37 1994", 784975777},
                        {"sun, 06 nov 1994 08:49:37 utc", 784111777},
                        {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
                        {"Thu, 29 Feb 2024 23:59:60 GMT", 1709251200},
                        {"Fri, 31 Dec 9999 23:59:59 GMT", 253402300799},
                        {"Thursday, 01-Jan-76 00:00:00 GMT", 3345062400},  // in 2076
                        {"Saturday, 01-Jan-77 00:00:00 GMT", 220924800},   // in 1977
                        {"", {}},
                        {"0", {}},
                        {"-1", {}},
                        {"tomorrow", {}},
                        {"Sun, 06 Nov 1994 08:49:37 CET", {}},
                        {"Sun, 06 Nov 1994 08:49:37 +0100", {}},
                        {"Sun, 06 Nov 1994 08:49:37", {}},
                        {"Sun, 31 Apr 1994 08:49:37 GMT", {}},
                        {"Sun, 29 Feb 2023 08:49:37 GMT", {}},
                        {"Sun, 00 Nov 1994 08:49:37 GMT", {}},
                        {"Sun, 06 Non 1994 08:49:37 GMT", {}},
                        {"Sun, 06 Nov 994 08:49:37 GMT", {}},
                        {"Sun, 06 Nov 1994 24:49:37 GMT", {}},
                        {"Sun, 06 Nov 1994 08:60:37 GMT", {}},
                        {"Sun, 06 Nov 1994 08:49:61 GMT", {}},
                        {"Sun, 06 Nov 1994 8:49:37 GMT", {}},
                        {"Sun, 06 Nov 1994 08:49:3x GMT", {}},
                        {"Sun, 06 Nov 1994 08:49:37 GMT, Sun, 06 Nov 1994 08:49:37 GMT", {}}}) {
    SCOPED_TRACE(row.text);
    const auto date = detail::parseHTTPDate(row.text, now);
    ASSERT_EQ(date.has_value(), row.seconds.has_value());
    if (date) {
      EXPECT_EQ(date->time_since_epoch(), seconds(*row.seconds));
    }
  }
}

}  // namespace
}  // namespace tarn::test

#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/CacheFixture.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Fields = URLRequest::HeaderFields;
using Policy = URLRequest::CachePolicy;

/// Where the answer to the second of two loads comes from.
enum class From {
  cache,   // nothing is sent
  server,  // asked as if for the first time
  both,    // the server is asked whether the kept answer holds, and says so
};

struct Row {
  const char* name;
  HeaderList answer;  // "@N" stands for the date N seconds from the first load
  std::int64_t secondsLater;
  From from;
  Fields first = {};   // of the first request
  Fields second = {};  // of the second one
};

HeaderList dated(HeaderList fields) {
  for (auto& [name, value] : fields) {
    if (value.starts_with('@')) value = ManualWallClock::date(std::stoll(value.substr(1)));
  }
  return fields;
}

void expectSecond(const Loaded& first, const Loaded& second, From from, ScriptedServer& server) {
  EXPECT_EQ(second.code(), 0);
  EXPECT_EQ(second.status(), first.status());
  EXPECT_EQ(server.requestCount(), from == From::cache ? 1u : 2u);
  EXPECT_EQ(second.text(), from == From::server ? "2" : "1");
  EXPECT_EQ(second.response->expectedContentLength(), 1);
  if (server.requestCount() < 2) return;
  const auto asked = server.request(1);
  EXPECT_EQ(asked.header("If-None-Match") || asked.header("If-Modified-Since"), from == From::both);
}

void run(const std::vector<Row>& rows) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    CacheCase test;
    test.serve(200, dated(row.answer));
    const auto first = test.load(test.request(row.first));
    EXPECT_EQ(first.text(), "1");
    test.clock.advance(row.secondsLater);
    const auto second = test.load(test.request(row.second));
    expectSecond(first, second, row.from, test.server);
  }
}

TEST(CacheFreshness, FollowsTheAnswer) {
  const std::string tenYears = "99999999999999999999";
  run({
      {"within max-age", {{"Cache-Control", "max-age=60"}}, 59, From::cache},
      {"max-age over", {{"Cache-Control", "max-age=60"}}, 60, From::server},
      {"max-age of nothing", {{"Cache-Control", "max-age=0"}}, 0, From::server},
      {"quoted number", {{"Cache-Control", "max-age=\"60\""}}, 59, From::cache},
      {"capitals", {{"CACHE-CONTROL", "MAX-AGE=60"}}, 59, From::cache},
      {"the first of two, long", {{"Cache-Control", "max-age=60, max-age=1"}}, 30, From::cache},
      {"the first of two, short", {{"Cache-Control", "max-age=1, max-age=60"}}, 30, From::server},
      {"unreadable", {{"Cache-Control", "max-age=1h"}}, 0, From::server},
      {"negative", {{"Cache-Control", "max-age=-5"}, {"Expires", "@60"}}, 0, From::server},
      {"too long to count", {{"Cache-Control", "max-age=" + tenYears}}, 315360000, From::cache},
      {"max-age before Expires",
       {{"Expires", "@-60"}, {"Cache-Control", "max-age=60"}},
       59,
       From::cache},
      {"for shared caches only", {{"Cache-Control", "s-maxage=60"}}, 0, From::server},
      {"s-maxage aside", {{"Cache-Control", "s-maxage=1, max-age=60"}}, 30, From::cache},
      {"within Expires", {{"Expires", "@60"}}, 59, From::cache},
      {"Expires over", {{"Expires", "@60"}}, 60, From::server},
      {"Expires of nothing", {{"Expires", "0"}, {"Last-Modified", "@-1000"}}, 0, From::both},
      {"Expires from Date on", {{"Date", "@-50"}, {"Expires", "@10"}}, 9, From::cache},
      {"Expires from Date on, over", {{"Date", "@-50"}, {"Expires", "@10"}}, 10, From::server},
      {"a tenth of the time unchanged", {{"Last-Modified", "@-1000"}}, 99, From::cache},
      {"a tenth, over", {{"Last-Modified", "@-1000"}}, 100, From::both},
      {"a day at most", {{"Last-Modified", "@-100000000"}}, 86399, From::cache},
      {"a day at most, over", {{"Last-Modified", "@-100000000"}}, 86400, From::both},
      {"changed in the future", {{"Last-Modified", "@1000"}}, 0, From::both},
      {"public", {{"Cache-Control", "public"}, {"Last-Modified", "@-1000"}}, 99, From::cache},
      {"nothing said", {}, 0, From::server},
      {"a tag alone", {{"ETag", "\"a\""}}, 0, From::both},
      {"a weak tag", {{"ETag", "W/\"a\""}}, 0, From::both},
      {"came from another cache", {{"Cache-Control", "max-age=60"}, {"Age", "50"}}, 9, From::cache},
      {"too long there", {{"Cache-Control", "max-age=60"}, {"Age", "50"}}, 10, From::server},
      {"unreadable age", {{"Cache-Control", "max-age=60"}, {"Age", "old"}}, 59, From::cache},
      {"old by its date", {{"Cache-Control", "max-age=60"}, {"Date", "@-50"}}, 10, From::server},
      {"from the future", {{"Cache-Control", "max-age=60"}, {"Date", "@50"}}, 59, From::cache},
  });
}

TEST(CacheFreshness, KeepsWhatTheAnswerAllows) {
  run({
      {"no-store", {{"Cache-Control", "no-store, max-age=60"}, {"ETag", "\"a\""}}, 0, From::server},
      {"no-store in another line",
       {{"Cache-Control", "max-age=60"}, {"Cache-Control", "no-store"}},
       0,
       From::server},
      {"no-cache", {{"Cache-Control", "no-cache, max-age=60"}, {"ETag", "\"a\""}}, 0, From::both},
      {"no-cache without validator", {{"Cache-Control", "no-cache, max-age=60"}}, 0, From::server},
      {"no-cache with fields",
       {{"Cache-Control", "no-cache=\"X-A, X-B\", max-age=60"}, {"ETag", "\"a\""}},
       0,
       From::both},
      {"private", {{"Cache-Control", "private, max-age=60"}}, 59, From::cache},
      {"must-revalidate while fresh",
       {{"Cache-Control", "must-revalidate, max-age=60"}},
       59,
       From::cache},
      {"stale-while-revalidate",
       {{"Cache-Control", "max-age=60, stale-while-revalidate=60"}},
       60,
       From::server},
      {"stale-if-error", {{"Cache-Control", "max-age=60, stale-if-error=60"}}, 60, From::server},
      {"unknown directives",
       {{"Cache-Control", "x, max-age=60, y=\"a, no-store\", ,immutable"}},
       59,
       From::cache},
      {"varies by anything",
       {{"Cache-Control", "max-age=60"}, {"Vary", "Accept, *"}},
       0,
       From::server},
      {"varies by cookies", {{"Cache-Control", "max-age=60"}, {"Vary", "cookie"}}, 0, From::server},
      {"varies by logins",
       {{"Cache-Control", "max-age=60"}, {"Vary", "Authorization"}},
       0,
       From::server},
      {"varies by another login",
       {{"Cache-Control", "max-age=60"}, {"Vary", "Authorization"}},
       0,
       From::server,
       {{"Authorization", "Bearer a"}},
       {{"Authorization", "Bearer b"}}},
      {"the same login",
       {{"Cache-Control", "max-age=60"}, {"Vary", "Authorization"}},
       0,
       From::cache,
       {{"Authorization", "Bearer a"}},
       {{"Authorization", "Bearer a"}}},
      {"a login", {{"Cache-Control", "max-age=60"}}, 0, From::cache, {{"Authorization", "B a"}}},
      {"varies, same",
       {{"Cache-Control", "max-age=60"}, {"Vary", "x-lang"}},
       0,
       From::cache,
       {{"X-Lang", "da,  en"}},
       {{"x-lang", "da ,en"}}},
      {"varies, other",
       {{"Cache-Control", "max-age=60"}, {"Vary", "X-Lang"}, {"ETag", "\"a\""}},
       0,
       From::server,
       {{"X-Lang", "da"}},
       {{"X-Lang", "en"}}},
      {"varies, other case",
       {{"Cache-Control", "max-age=60"}, {"Vary", "X-Lang"}},
       0,
       From::server,
       {{"X-Lang", "da"}},
       {{"X-Lang", "DA"}}},
      {"varies, absent",
       {{"Cache-Control", "max-age=60"}, {"Vary", "X-Lang"}},
       0,
       From::server,
       {{"X-Lang", "da"}},
       {}},
      {"varies, absent from both",
       {{"Cache-Control", "max-age=60"}, {"Vary", "X-Lang"}},
       0,
       From::cache},
      {"varies by two",
       {{"Cache-Control", "max-age=60"}, {"Vary", "X-A"}, {"Vary", "X-B"}},
       0,
       From::server,
       {{"X-A", "1"}, {"X-B", "1"}},
       {{"X-A", "1"}, {"X-B", "2"}}},
  });
}

TEST(CacheFreshness, HeedsTheRequest) {
  const HeaderList minute{{"Cache-Control", "max-age=60"}};
  const HeaderList tagged{{"Cache-Control", "max-age=60"}, {"ETag", "\"a\""}};
  const HeaderList strict{{"Cache-Control", "max-age=60, must-revalidate"}, {"ETag", "\"a\""}};
  const HeaderList proxies{{"Cache-Control", "max-age=60, proxy-revalidate"}, {"ETag", "\"a\""}};
  const auto control = [](const char* value) { return Fields{{"cache-control", value}}; };
  run({
      {"no-cache", tagged, 0, From::both, {}, control("no-cache")},
      {"Pragma", tagged, 0, From::both, {}, {{"Pragma", "no-cache"}}},
      {"Pragma beside Cache-Control",
       tagged,
       0,
       From::cache,
       {},
       {{"Cache-Control", "x"}, {"Pragma", "no-cache"}}},
      {"max-age", minute, 9, From::cache, {}, control("max-age=10")},
      {"max-age over", minute, 10, From::server, {}, control("max-age=10")},
      {"max-age of nothing", tagged, 0, From::both, {}, control("max-age=0")},
      {"min-fresh", minute, 50, From::cache, {}, control("min-fresh=10")},
      {"min-fresh over", minute, 51, From::server, {}, control("min-fresh=10")},
      {"unreadable min-fresh", minute, 0, From::server, {}, control("min-fresh=a")},
      {"max-stale", tagged, 70, From::cache, {}, control("max-stale=10")},
      {"max-stale over", tagged, 71, From::both, {}, control("max-stale=10")},
      {"any max-stale", tagged, 100000, From::cache, {}, control("max-stale")},
      {"unreadable max-stale", tagged, 61, From::both, {}, control("max-stale=a")},
      {"must-revalidate and max-stale", strict, 60, From::both, {}, control("max-stale")},
      {"proxy-revalidate and max-stale", proxies, 60, From::cache, {}, control("max-stale")},
      {"no-store", minute, 0, From::server, control("no-store"), {}},
      {"no-store of a kept answer", tagged, 0, From::cache, {}, control("no-store")},
      {"no-store of a stale answer", tagged, 60, From::server, {}, control("no-store")},
      {"only-if-cached", minute, 59, From::cache, {}, control("only-if-cached")},
  });
}

struct StatusRow {
  int status;
  bool byItself;   // kept for a while that the cache makes up
  bool ifAllowed;  // kept where the answer says for how long
};

TEST(CacheFreshness, DependsOnTheStatus) {
  for (const auto& row : std::vector<StatusRow>{
           {200, true, true},   {201, false, true}, {202, false, true},  {203, true, true},
           {206, false, false}, {300, true, true},  {400, false, true},  {401, false, false},
           {403, false, true},  {404, true, true},  {405, true, true},   {407, false, false},
           {410, true, true},   {414, true, true},  {416, false, false}, {429, false, true},
           {500, false, true},  {501, true, true},  {503, false, true},  {299, false, true}}) {
    for (const bool allowed : {false, true}) {
      SCOPED_TRACE(std::to_string(row.status) + (allowed ? " allowed" : ""));
      CacheCase test;
      test.serve(row.status, dated({allowed ? std::pair("Cache-Control", "max-age=60")
                                            : std::pair("Last-Modified", "@-1000")}));
      EXPECT_EQ(test.load().status(), row.status);
      const auto second = test.load();
      EXPECT_EQ(second.status(), row.status);
      EXPECT_EQ(test.server.requestCount(), (allowed ? row.ifAllowed : row.byItself) ? 1u : 2u);
    }
  }
}

TEST_F(CacheFixture, KeepsAnAnswerWithoutBody) {
  server.route("/", Script().head(204, {{"Cache-Control", "max-age=60"}}));
  EXPECT_EQ(load().status(), 204);
  const auto second = load();
  EXPECT_EQ(second.status(), 204);
  EXPECT_EQ(second.text(), "");
  EXPECT_EQ(server.requestCount(), 1u);
}

// -- Policies

enum class Outcome { kept, asked, confirmed, unavailable };

struct PolicyRow {
  Policy policy;
  Outcome fresh;
  Outcome stale;
  Outcome absent;
};

std::vector<PolicyRow> policies() {
  using enum Outcome;
  return {
      {Policy::useProtocolCachePolicy, kept, confirmed, asked},
      {Policy::reloadIgnoringLocalCacheData, asked, asked, asked},
      {Policy::returnCacheDataElseLoad, kept, kept, asked},
      {Policy::returnCacheDataDontLoad, kept, kept, unavailable},
      {Policy::reloadRevalidatingCacheData, confirmed, confirmed, asked},
  };
}

void expectOutcome(CacheCase& test, const Loaded& loaded, Outcome outcome) {
  if (outcome == Outcome::unavailable) {
    EXPECT_EQ(loaded.code(), URLError::resourceUnavailable);
    EXPECT_EQ(loaded.response, nullptr);
    EXPECT_EQ(test.server.requestCount(), 0u);
    return;
  }
  EXPECT_EQ(loaded.code(), 0);
  EXPECT_EQ(loaded.status(), 200);
  const auto requests = test.server.requests();
  const bool sent = outcome != Outcome::kept;
  ASSERT_EQ(requests.size(), sent ? 2u : 1u);
  EXPECT_EQ(loaded.text(), outcome == Outcome::asked ? "2" : "1");
  EXPECT_EQ(requests.back().header("If-None-Match").has_value(), outcome == Outcome::confirmed);
}

TEST(CachePolicies, DecideWhereAnAnswerComesFrom) {
  for (const auto& row : policies()) {
    for (const bool bySession : {false, true}) {
      const bool isDefault = row.policy == Policy::useProtocolCachePolicy;
      SCOPED_TRACE(std::to_string(static_cast<int>(row.policy)) + (bySession ? " session's" : ""));
      for (const auto& [age, outcome] : {std::pair(0, row.fresh), std::pair(60, row.stale)}) {
        SCOPED_TRACE(age);
        CacheCase test;
        test.serve(200, {{"Cache-Control", "max-age=60"}, {"ETag", "\"a\""}});
        auto configuration = URLSessionConfiguration::ephemeral();
        if (bySession) configuration.requestCachePolicy = row.policy;
        RecordedSession session(configuration);
        // Fills the cache, whatever the session's policy.
        session.load(test.request(Policy::reloadIgnoringLocalCacheData));
        test.clock.advance(age);
        const auto second = bySession || isDefault ? test.request() : test.request(row.policy);
        expectOutcome(test, session.load(second), outcome);
      }
    }
    CacheCase test;
    const auto loaded = test.load(test.request(row.policy));
    if (row.absent == Outcome::unavailable) {
      expectOutcome(test, loaded, row.absent);
    } else {
      EXPECT_EQ(loaded.text(), "1");
      EXPECT_EQ(test.server.request(0).header("If-None-Match"), std::nullopt);
    }
  }
}

TEST_F(CacheFixture, ReloadingReplacesWhatIsKept) {
  serve(200, {{"Cache-Control", "max-age=60"}});
  load();
  EXPECT_EQ(load(request(Policy::reloadIgnoringLocalCacheData)).text(), "2");
  EXPECT_EQ(load().text(), "2");
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(CacheFixture, ReloadingWithAnAnswerThatMayNotBeKeptForgetsTheFormer) {
  serve(200, {{"Cache-Control", "max-age=60"}});
  load();
  serve(200, {{"Cache-Control", "no-store"}});
  load(request(Policy::reloadIgnoringLocalCacheData));
  EXPECT_EQ(load(request(Policy::returnCacheDataDontLoad)).code(), URLError::resourceUnavailable);
}

TEST_F(CacheFixture, AnAnswerThatSaysNothingServesThosePoliciesThatTakeAnyAge) {
  load();
  clock.advance(1'000'000);
  EXPECT_EQ(load(request(Policy::returnCacheDataElseLoad)).text(), "1");
  EXPECT_EQ(load(request(Policy::returnCacheDataDontLoad)).text(), "1");
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(CacheFixture, NothingIsSentWhereOnlyTheCacheMayAnswer) {
  auto post = request(Policy::returnCacheDataDontLoad);
  post.setHTTPMethod("POST");
  auto ranged = request(Policy::returnCacheDataDontLoad);
  ranged.setValue("bytes=0-1", "Range");
  auto onlyIfCached = request({{"Cache-Control", "only-if-cached"}});
  for (const auto& each : {post, ranged, onlyIfCached}) {
    const auto loaded = load(each);
    EXPECT_EQ(loaded.code(), URLError::resourceUnavailable);
    EXPECT_EQ(loaded.response, nullptr);
  }
  const auto download =
      session.start(session->downloadTask(request(Policy::returnCacheDataDontLoad)));
  EXPECT_EQ(session.finished(download).code(), URLError::resourceUnavailable);
  EXPECT_EQ(server.requestCount(), 0u);
}

}  // namespace
}  // namespace tarn::test

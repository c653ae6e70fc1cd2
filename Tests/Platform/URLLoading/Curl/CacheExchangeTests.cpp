#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/CacheFixture.hpp>
#include <Support/Collector.hpp>
#include <Support/Compression.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Policy = URLRequest::CachePolicy;

const HeaderList minute{{"Cache-Control", "max-age=60"}};
const HeaderList tagged{{"Cache-Control", "max-age=60"}, {"ETag", "\"a\""}};

struct CacheExchange : CacheFixture {
  Loaded loadFromCache() { return load(request(Policy::returnCacheDataDontLoad)); }
  Loaded loadFrom(const std::string& path) { return load(request({}, path)); }
  Loaded send(const std::string& method, const std::string& path = "/") {
    auto sent = request({}, path);
    sent.setHTTPMethod(method);
    return load(sent);
  }
  bool isKept(const std::string& path = "/") {
    auto asked = request({}, path);
    asked.setCachePolicy(Policy::returnCacheDataDontLoad);
    return load(asked).code() == 0;
  }
};

// -- What a kept answer looks like

TEST_F(CacheExchange, AKeptAnswerLooksLikeTheFirstButForItsAge) {
  server.route("/", Script().respond(200,
                                     {{"Cache-Control", "max-age=60"},
                                      {"Content-Type", "text/plain; charset=utf-8"},
                                      {"Set-Cookie", "a=b"},
                                      {"X-Own", "1"}},
                                     "hello"));
  const auto first = load(RecordedSession::request(server.url("/#one")));
  clock.advance(7);
  const auto second = load(RecordedSession::request(server.url("/#two")));
  ASSERT_TRUE(second.response);
  EXPECT_EQ(second.text(), "hello");
  EXPECT_EQ(second.record.dataEvents, 1);
  EXPECT_EQ(second.response->httpVersion(), "HTTP/1.1");
  EXPECT_EQ(second.response->mimeType(), "text/plain");
  EXPECT_EQ(second.response->textEncodingName(), "utf-8");
  EXPECT_EQ(second.response->expectedContentLength(), 5);
  EXPECT_EQ(second.response->url().absoluteString(), server.url("/#two"));
  EXPECT_EQ(second.header("Age"), "7");
  auto fields = second.response->allHeaderFields();
  fields.remove("Age");
  EXPECT_EQ(fields, first.response->allHeaderFields());
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(CacheExchange, SharesABodyThatCameInOnePiece) {
  serve(200, minute);
  const auto first = load();
  const auto second = load();
  EXPECT_EQ(first.record.body.bytes(), second.record.body.bytes());
  auto changed = second.record.body;
  *changed.mutableBytes() = 'x';
  EXPECT_EQ(load().text(), "1");
}

TEST_F(CacheExchange, KeepsABodyThatCameInPieces) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.cacheMemoryCapacity = 64 * 1024 * 1024;
  RecordedSession roomy(configuration);
  std::string body;
  while (body.size() < 3 * 1024 * 1024) body += std::to_string(body.size()) + ",";
  server.route("/", Script().respond(200, minute, body));
  server.route("/chunked", Script().respondChunked(200, minute, {"a", "bc", body}, {{"X-T", "1"}}));
  for (const auto& [path, expected] : {std::pair("/", body), std::pair("/chunked", "abc" + body)}) {
    for (int i = 0; i < 2; ++i) {
      const auto loaded = roomy.load(server.url(path));
      EXPECT_EQ(loaded.code(), 0);
      EXPECT_TRUE(loaded.text() == expected);
      EXPECT_EQ(loaded.response->expectedContentLength(),
                expected == body ? std::int64_t(body.size()) : -1);
    }
  }
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(CacheExchange, KeepsABodyDecoded) {
  const std::string text(100'000, 'a');
  auto fields = minute;
  fields.emplace_back("Content-Encoding", "gzip");
  server.route("/", Script().respond(200, fields, gzip(text)));
  for (int i = 0; i < 2; ++i) {
    const auto loaded = load();
    EXPECT_EQ(loaded.code(), 0);
    EXPECT_TRUE(loaded.text() == text);
    EXPECT_EQ(loaded.response->expectedContentLength(), -1);
    EXPECT_EQ(loaded.header("Content-Encoding"), "gzip");
  }
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(CacheExchange, NeedsNoConnection) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.httpMaximumConnectionsPerHost = 1;
  RecordedSession narrow(configuration);
  serve(200, minute);
  narrow.load(request());
  server.route("/busy", Script().stall());
  const auto busy = narrow.start(server.url("/busy"));
  ASSERT_TRUE(server.waitForStalls(1));
  EXPECT_EQ(narrow.load(request()).text(), "1");
  busy->cancel();
}

// -- What is kept

struct CutRow {
  const char* name;
  Script script;
  bool fails;
};

TEST_F(CacheExchange, OnlyAWholeBodyIsKept) {
  auto encoded = minute;
  encoded.emplace_back("Content-Encoding", "gzip");
  const auto packed = gzip(std::string(1000, 'a'));
  const std::string head = "HTTP/1.1 200 OK\r\nCache-Control: max-age=60\r\n";
  const std::vector<CutRow> rows{
      {"length", Script().send(head + "Content-Length: 10\r\n\r\nhello").close(), true},
      {"reset", Script().send(head + "Content-Length: 10\r\n\r\nhello").reset(), true},
      {"chunks", Script().send(head + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n").close(),
       true},
      {"coding", Script().respond(200, encoded, packed.substr(0, packed.size() / 2)), true},
      {"nobody knows", Script().send(head + "\r\nhello").close(), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    server.routeSequence("/cut", {row.script, Script().respond(200, {}, "whole")});
    EXPECT_EQ(loadFrom("/cut").code() != 0, row.fails);
    EXPECT_EQ(loadFrom("/cut").text(), "whole");
  }
}

TEST_F(CacheExchange, ACancelledLoadIsNotKept) {
  server.route("/", Script()
                        .head(200, {{"Cache-Control", "max-age=60"}, {"Content-Length", "10"}})
                        .send("hello")
                        .stall()
                        .send("world"));
  const auto task = session.start(request());
  ASSERT_TRUE(session.delegate().waitForBytes(task->taskIdentifier(), 5));
  task->cancel();
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_FALSE(isKept());
}

TEST_F(CacheExchange, WhatIsKeptSurvivesAFailedReload) {
  serve(200, minute);
  load();
  server.route("/", Script().send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello").close());
  EXPECT_NE(load(request(Policy::reloadIgnoringLocalCacheData)).code(), 0);
  EXPECT_EQ(loadFromCache().text(), "1");
}

TEST_F(CacheExchange, TwoLoadsOfOneAddressAtOnce) {
  server.route("/", Script().stall().respond(200, minute, "hello"));
  const auto one = session.start(request());
  const auto two = session.start(request());
  server.releaseStalls(2);
  EXPECT_EQ(session.finished(one).text(), "hello");
  EXPECT_EQ(session.finished(two).text(), "hello");
  EXPECT_EQ(load().text(), "hello");
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(CacheExchange, IsTheSessionsOwn) {
  serve(200, minute);
  load();
  RecordedSession other;
  EXPECT_EQ(other.load(request()).text(), "2");
  EXPECT_EQ(load().text(), "1");
}

TEST_F(CacheExchange, NothingIsKeptWithoutRoom) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.cacheMemoryCapacity = 0;
  RecordedSession none(configuration);
  serve(200, tagged);
  none.load(request());
  EXPECT_EQ(none.load(request()).text(), "2");
  EXPECT_EQ(none.load(request(Policy::returnCacheDataDontLoad)).code(),
            URLError::resourceUnavailable);
}

TEST_F(CacheExchange, WhatWasNotUsedForLongestMakesRoom) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.cacheMemoryCapacity = 100'000;
  RecordedSession small(configuration);
  const auto isKept = [&](const std::string& path) {
    auto asked = request({}, path);
    asked.setCachePolicy(Policy::returnCacheDataDontLoad);
    return small.load(asked).code() == 0;
  };
  server.setHandler([](const ReceivedRequest&) {
    return Script().respond(200, minute, std::string(8'000, 'a'));
  });
  for (int i = 0; i < 10; ++i) small.load(request({}, "/" + std::to_string(i)));
  ASSERT_TRUE(isKept("/0"));  // and was used last by that
  for (int i = 10; i < 15; ++i) small.load(request({}, "/" + std::to_string(i)));
  EXPECT_TRUE(isKept("/0"));
  EXPECT_FALSE(isKept("/1"));
  EXPECT_TRUE(isKept("/14"));
}

TEST_F(CacheExchange, WhatIsTooLargeIsNotKeptAndReplacesWhatWas) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.cacheMemoryCapacity = 20'000;
  RecordedSession small(configuration);
  const std::string large(2'001, 'a');
  for (const auto& script :
       {Script().respond(200, minute, large), Script().respondChunked(200, minute, {large}),
        Script().respondChunked(200, minute, {large, large, large})}) {
    server.routeSequence("/", {Script().respond(200, minute, "small"), script});
    small.load(request());
    EXPECT_EQ(small.load(request(Policy::returnCacheDataDontLoad)).text(), "small");
    EXPECT_GT(small.load(request(Policy::reloadIgnoringLocalCacheData)).text().size(), 2000u);
    EXPECT_EQ(small.load(request(Policy::returnCacheDataDontLoad)).code(),
              URLError::resourceUnavailable);
  }
}

TEST_F(CacheExchange, KeepsAnAnswerForEachOfTheRequestsItVariesBy) {
  auto fields = minute;
  fields.emplace_back("Vary", "X-Lang");
  serve(200, fields);
  const auto in = [this](const char* language) {
    return load(request({{"X-Lang", language}})).text();
  };
  EXPECT_EQ(in("da"), "1");
  EXPECT_EQ(in("en"), "2");
  EXPECT_EQ(in("da"), "1");
  EXPECT_EQ(in("en"), "2");
  for (int i = 0; i < 20; ++i) {
    clock.advance(1);
    in(std::to_string(i).c_str());
  }
  EXPECT_EQ(in("19"), "22");
  EXPECT_EQ(server.requestCount(), 22u);
  EXPECT_EQ(in("en"), "23");  // there are only so many
}

// -- Logins

struct CacheLogins : CacheExchange {
  std::string address(const std::string& user, const std::string& path = "/") const {
    return "http://" + user + ":secret@127.0.0.1:" + std::to_string(server.port()) + path;
  }
  std::string loadAs(const std::string& user) { return session.load(address(user)).text(); }
};

TEST_F(CacheLogins, AnAnswerIsForWhoeverTheAddressNames) {
  serve(200, tagged);
  EXPECT_EQ(loadAs("alice"), "1");
  EXPECT_EQ(loadAs("bob"), "2");
  EXPECT_EQ(load().text(), "3");
  EXPECT_EQ(loadAs("alice"), "1");
  EXPECT_EQ(loadAs("bob"), "2");
  EXPECT_EQ(load(request({{"Authorization", "Basic YWxpY2U6c2VjcmV0"}})).text(), "1");
  EXPECT_EQ(server.requestCount(), 3u);
  EXPECT_EQ(server.request(0).header("Authorization"), "Basic YWxpY2U6c2VjcmV0");
  EXPECT_EQ(server.request(2).header("Authorization"), std::nullopt);
}

TEST_F(CacheLogins, AChangeEndsWhatIsKeptForAnybody) {
  serve(200, minute);
  loadAs("alice");
  loadAs("bob");
  send("PUT");
  EXPECT_EQ(loadAs("alice"), "4");
  EXPECT_EQ(loadAs("bob"), "5");
}

TEST_F(CacheLogins, ARedirectTakesTheLoginAlong) {
  serve(200, minute);
  server.route("/from", Script().respond(302, {{"Location", server.url("/to")}}));
  for (const auto* user : {"alice", "bob"}) session.load(address(user, "/from"));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_NE(requests[1].header("Authorization"), requests[3].header("Authorization"));
  EXPECT_EQ(loadFrom("/to").text(), "3");
}

// -- Asking whether a kept answer holds

TEST_F(CacheExchange, AConfirmedAnswerIsRenewed) {
  server.routeSequence("/", {Script().respond(200,
                                              {{"Cache-Control", "max-age=60"},
                                               {"ETag", "\"a\""},
                                               {"Last-Modified", ManualWallClock::date(-5)},
                                               {"Age", "3"},
                                               {"Connection", "keep-alive"},
                                               {"X-Own", "1"},
                                               {"X-Hop", "1"},
                                               {"X-Kept", "1"}},
                                              "hello"),
                             Script().head(304, {{"Cache-Control", "max-age=600"},
                                                 {"Content-Length", "99"},
                                                 {"Content-Encoding", "gzip"},
                                                 {"Connection", "X-Hop"},
                                                 {"Set-Cookie", "a=b"},
                                                 {"X-Hop", "2"},
                                                 {"X-Own", "2"}})});
  load();
  clock.advance(60);
  const auto confirmed = load();
  EXPECT_EQ(server.request(1).header("If-None-Match"), "\"a\"");
  EXPECT_EQ(server.request(1).header("If-Modified-Since"), ManualWallClock::date(-65));
  EXPECT_EQ(confirmed.task->currentRequest().value("If-None-Match"), std::nullopt);
  EXPECT_EQ(confirmed.status(), 200);
  EXPECT_EQ(confirmed.text(), "hello");
  EXPECT_EQ(confirmed.response->expectedContentLength(), 5);
  EXPECT_EQ(confirmed.header("Age"), "");
  EXPECT_EQ(confirmed.header("Content-Length"), "5");
  EXPECT_EQ(confirmed.header("Content-Encoding"), "");
  EXPECT_EQ(confirmed.header("X-Own"), "2");
  EXPECT_EQ(confirmed.header("X-Hop"), "1");
  EXPECT_EQ(confirmed.header("X-Kept"), "1");
  clock.advance(599);
  const auto kept = load();
  EXPECT_EQ(kept.text(), "hello");
  EXPECT_EQ(kept.header("Age"), "599");
  EXPECT_EQ(server.requestCount(), 2u);
  clock.advance(1);
  load();
  EXPECT_EQ(server.request(2).header("Cookie"), "a=b");  // also that of a 304 counts
}

TEST_F(CacheExchange, AnAnswerThatMayNotBeKeptAnyLongerIsDeliveredOnce) {
  serve(200, tagged);
  load();
  clock.advance(60);
  serve(200, {{"Cache-Control", "no-store"}});
  EXPECT_EQ(load().text(), "1");
  EXPECT_FALSE(isKept());
}

struct OtherAnswerRow {
  int status;
  const char* keptText;  // afterwards
};

TEST_F(CacheExchange, AnotherAnswerThan304IsTheAnswer) {
  for (const auto& row : std::vector<OtherAnswerRow>{
           {200, "new"}, {404, "new"}, {410, "new"}, {403, "old"}, {500, "old"}, {503, "old"}}) {
    SCOPED_TRACE(row.status);
    server.routeSequence(
        "/", {Script().respond(200, tagged, "old"), Script().respond(row.status, {}, "new")});
    load(request(Policy::reloadIgnoringLocalCacheData));
    clock.advance(60);
    const auto loaded = load();
    EXPECT_EQ(loaded.status(), row.status);
    EXPECT_EQ(loaded.text(), "new");
    EXPECT_EQ(loadFromCache().text(), row.keptText);
  }
}

TEST_F(CacheExchange, AQuestionThatFailsFailsTheTask) {
  serve(200, tagged);
  load();
  clock.advance(60);
  server.route("/", Script().reset());
  EXPECT_EQ(load().code(), URLError::networkConnectionLost);
  EXPECT_TRUE(isKept());
}

TEST_F(CacheExchange, AQuestionTimesOutAndCanBeCancelled) {
  serve(200, tagged);
  load();
  clock.advance(60);
  server.route("/", Script().stall());
  auto impatient = request();
  impatient.setTimeoutInterval(TimeInterval(0.1));
  EXPECT_EQ(load(impatient).code(), URLError::timedOut);
  const auto task = session.start(request());
  ASSERT_TRUE(server.waitForRequests(3));
  task->cancel();
  EXPECT_EQ(session.finished(task).code(), URLError::cancelled);
  EXPECT_TRUE(isKept());
}

TEST_F(CacheExchange, AConfirmedAnswerThatHasGoneMeanwhileIsStillDelivered) {
  serve(200, tagged);
  load();
  clock.advance(60);
  server.route("/", Script().stall().respond(304, tagged));
  const auto task = session.start(request());
  ASSERT_TRUE(server.waitForStalls(1));
  server.route("/", Script().respond(204));
  EXPECT_EQ(send("DELETE").status(), 204);
  server.releaseStalls();
  EXPECT_EQ(session.finished(task).text(), "1");
  EXPECT_FALSE(isKept());
}

TEST_F(CacheExchange, AQuestionOfTheRequestsOwnIsAnsweredToIt) {
  serve(200, tagged);
  load();
  for (const auto* name : {"if-none-match", "If-Modified-Since"}) {
    const auto loaded = load(request({{name, "\"a\""}}));
    EXPECT_EQ(loaded.status(), 304);
    EXPECT_EQ(loaded.text(), "");
  }
  EXPECT_EQ(server.requestCount(), 3u);
  EXPECT_EQ(load().text(), "1");
}

TEST_F(CacheExchange, PartsAreNeitherTakenNorKept) {
  server.setHandler([](const ReceivedRequest& received) {
    if (received.header("Range")) return Script().respond(206, minute, "el");
    return Script().respond(200, minute, "hello");
  });
  const auto part = request({{"Range", "bytes=1-2"}});
  EXPECT_EQ(load(part).text(), "el");
  EXPECT_EQ(load().text(), "hello");
  EXPECT_EQ(load(part).text(), "el");
  EXPECT_EQ(load().text(), "hello");
  EXPECT_EQ(server.requestCount(), 3u);
}

// -- Other methods

TEST_F(CacheExchange, HeadIsAnsweredFromAKeptGet) {
  serve(200, tagged);
  load();
  const auto head = send("HEAD");
  EXPECT_EQ(head.status(), 200);
  EXPECT_EQ(head.text(), "");
  EXPECT_EQ(head.header("Age"), "0");
  EXPECT_EQ(head.response->expectedContentLength(), 1);
  clock.advance(60);
  EXPECT_EQ(send("HEAD").status(), 200);
  EXPECT_EQ(server.requestCount(), 2u);
  EXPECT_EQ(server.request(1).header("If-None-Match"), "\"a\"");
  EXPECT_EQ(load().text(), "1");  // fresh again
  EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(CacheExchange, AnAnswerToHeadIsNotKept) {
  serve(200, minute);
  send("HEAD");
  EXPECT_FALSE(isKept());
  EXPECT_EQ(load().text(), "2");
}

TEST_F(CacheExchange, AnAnswerToHeadRenewsOrEndsAKeptAnswer) {
  const HeaderList hour{{"Cache-Control", "max-age=3600"}};
  const auto with = [&](const char* name, const char* value) {
    auto fields = hour;
    fields.emplace_back(name, value);
    return fields;
  };
  for (const auto& [fields, same] :
       {std::pair(hour, true), std::pair(with("ETag", "\"a\""), true),
        std::pair(with("ETag", "\"b\""), false), std::pair(with("Content-Length", "1"), true),
        std::pair(with("Content-Length", "2"), false),
        std::pair(HeaderList{{"Cache-Control", "no-store"}}, false)}) {
    serve(200, tagged);
    load(request(Policy::reloadIgnoringLocalCacheData));
    clock.advance(60);
    server.setHandler(
        [fields = fields](const ReceivedRequest&) { return Script().head(200, fields); });
    send("HEAD");
    EXPECT_EQ(isKept(), same);
    const auto before = server.requestCount();
    if (same) {
      EXPECT_EQ(load().text(), "1");
      EXPECT_EQ(server.requestCount(), before);
    }
  }
}

struct ChangeRow {
  const char* method;
  int status;
  bool keeps;
};

TEST_F(CacheExchange, AChangeEndsWhatIsKept) {
  for (const auto& row : std::vector<ChangeRow>{{"POST", 200, false},
                                                {"PUT", 204, false},
                                                {"DELETE", 204, false},
                                                {"PATCH", 200, false},
                                                {"X-OWN", 200, false},
                                                {"POST", 303, false},
                                                {"POST", 400, true},
                                                {"PUT", 500, true},
                                                {"OPTIONS", 200, true}}) {
    SCOPED_TRACE(std::string(row.method) + " " + std::to_string(row.status));
    serve(200, minute);
    load(request(Policy::reloadIgnoringLocalCacheData));
    serve(row.status, {});
    send(row.method);
    EXPECT_EQ(isKept(), row.keeps);
  }
}

TEST_F(CacheExchange, AChangeEndsWhatIsKeptOfTheAddressesItNames) {
  ScriptedServer other;
  other.setHandler([](const ReceivedRequest&) { return Script().respond(200, minute, "other"); });
  serve(200, minute);
  for (const auto* path : {"/a", "/b", "/c"}) loadFrom(path);
  session.load(other.url("/"));
  const HeaderList fields{{"Location", "a"}, {"Content-Location", server.url("/b#x")}};
  server.route("/post", Script().respond(201, fields));
  send("POST", "/post");
  EXPECT_FALSE(isKept("/a"));
  EXPECT_FALSE(isKept("/b"));
  EXPECT_TRUE(isKept("/c"));
  server.route("/post", Script().respond(201, {{"Location", other.url("/")}}));
  send("POST", "/post");
  auto elsewhere = RecordedSession::request(other.url("/"));
  elsewhere.setCachePolicy(Policy::returnCacheDataDontLoad);
  EXPECT_EQ(load(elsewhere).text(), "other");
}

TEST_F(CacheExchange, AnAnswerAskedForBeforeAChangeIsNotKept) {
  server.route("/", Script().stall().respond(200, minute, "before"));
  const auto task = session.start(request());
  ASSERT_TRUE(server.waitForStalls(1));
  server.route("/", Script().respond(204));
  send("PUT");
  server.releaseStalls();
  EXPECT_EQ(session.finished(task).text(), "before");
  EXPECT_FALSE(isKept());
}

TEST_F(CacheExchange, AnUploadEndsWhatIsKept) {
  serve(200, minute);
  load();
  auto upload = request();
  upload.setHTTPMethod("PUT");
  session.finished(session.start(session->uploadTask(upload, Data("new"))));
  EXPECT_FALSE(isKept());
}

TEST_F(CacheExchange, ADownloadNeitherTakesNorKeepsButEndsWhatIsKept) {
  serve(200, minute);
  const auto download = [this](const URLRequest& asked) {
    return session.finished(session.start(session->downloadTask(asked)));
  };
  EXPECT_EQ(download(request()).code(), 0);
  EXPECT_FALSE(isKept());
  load();
  download(request());
  EXPECT_EQ(server.requestCount(), 3u);
  auto post = request();
  post.setHTTPMethod("POST");
  download(post);
  EXPECT_FALSE(isKept());
}

TEST_F(CacheExchange, AGetWithABodyTakesNothingAndKeepsNothing) {
  serve(200, minute);
  auto withBody = request();
  withBody.setHTTPBody(Data("query"));
  EXPECT_EQ(load(withBody).text(), "1");
  EXPECT_EQ(load().text(), "2");
  EXPECT_EQ(load(withBody).text(), "3");
  EXPECT_EQ(session.finished(session.start(session->uploadTask(request(), Data("q")))).text(), "4");
  EXPECT_EQ(load().text(), "2");
}

// -- Redirects

struct RedirectRow {
  int status;
  HeaderList fields;
  std::size_t requests;  // of two loads
};

TEST_F(CacheExchange, KeptRedirectsAreFollowedLikeAny) {
  const HeaderList later{{"Last-Modified", ManualWallClock::date(-1000)}};
  for (const auto& row : std::vector<RedirectRow>{{301, later, 2},
                                                  {308, later, 2},
                                                  {302, later, 3},
                                                  {307, later, 3},
                                                  {303, later, 3},
                                                  {302, minute, 2},
                                                  {307, minute, 2},
                                                  {301, {{"Cache-Control", "no-store"}}, 3},
                                                  {301, {}, 3}}) {
    SCOPED_TRACE(row.status);
    RecordedSession own;
    const auto before = server.requestCount();
    auto fields = row.fields;
    fields.emplace_back("Location", "/to");
    server.route("/from", Script().respond(row.status, fields, "moved"));
    server.route("/to", Script().respond(200, minute, "there"));
    for (int i = 0; i < 2; ++i) {
      const auto loaded = own.load(server.url("/from"));
      EXPECT_EQ(loaded.text(), "there");
      EXPECT_EQ(loaded.record.redirects,
                (std::vector<std::pair<int, std::string>>{{row.status, server.url("/to")}}));
      EXPECT_EQ(loaded.response->url().absoluteString(), server.url("/to"));
    }
    EXPECT_EQ(server.requestCount() - before, row.requests);
  }
}

TEST_F(CacheExchange, AKeptRedirectCanBeTheAnswer) {
  auto fields = minute;
  fields.emplace_back("Location", "/to");
  server.route("/", Script().respond(301, fields, "moved"));
  session.delegate().onRedirect = [](auto&, auto, const auto& answer) { answer(std::nullopt); };
  for (int i = 0; i < 2; ++i) {
    const auto loaded = load();
    EXPECT_EQ(loaded.status(), 301);
    EXPECT_EQ(loaded.text(), "moved");
  }
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(CacheExchange, AKeptRedirectIsAskedForAgain) {
  auto fields = tagged;
  fields.emplace_back("Location", "/to");
  server.routeSequence("/", {Script().respond(308, fields), Script().head(304, tagged)});
  server.route("/to", Script().respond(200, {}, "there"));
  load();
  clock.advance(60);
  const auto loaded = load();
  EXPECT_EQ(loaded.text(), "there");
  EXPECT_EQ(loaded.record.redirects.size(), 1u);
  EXPECT_EQ(server.request(2).header("If-None-Match"), "\"a\"");
  EXPECT_EQ(server.requestCount(), 4u);
}

TEST_F(CacheExchange, AKeptRedirectToItselfComesToAnEnd) {
  auto fields = minute;
  fields.emplace_back("Location", "/");
  server.route("/", Script().respond(301, fields));
  EXPECT_EQ(load().code(), URLError::httpTooManyRedirects);
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(CacheExchange, AnEncodedBodyOfARedirectIsDecodedAllTheSame) {
  auto fields = minute;
  fields.emplace_back("Location", "/to");
  fields.emplace_back("Content-Encoding", "gzip");
  server.route("/", Script().respond(301, fields, gzip("moved")));
  session.delegate().onRedirect = [](auto&, auto, const auto& answer) { answer(std::nullopt); };
  for (int i = 0; i < 2; ++i) EXPECT_EQ(load().text(), "moved");
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(CacheExchange, ATargetFromTheCacheWaitsWhileTheTaskIsSuspended) {
  serve(200, minute);
  loadFrom("/to");
  server.route("/from", Script().respond(302, {{"Location", "/to"}}));
  const Waiter answered;
  session.delegate().onRedirect = [&](URLSessionTask& task, URLRequest next, const auto& answer) {
    task.suspend();
    answer(std::move(next));
    answered.signal();
  };
  const auto task = session.start(request({}, "/from"));
  ASSERT_TRUE(answered.waitFor(1));
  loadFrom("/to");  // what was on its way for the first task has been told by then
  EXPECT_EQ(session.delegate().record(task->taskIdentifier()).completions, 0);
  task->resume();
  EXPECT_EQ(session.finished(task).text(), "1");
  EXPECT_EQ(server.requestCount(), 2u);

  const auto changed = session.start(request({}, "/from"));
  ASSERT_TRUE(answered.waitFor(2));
  loadFrom("/to");
  send("PUT", "/to");
  changed->resume();
  EXPECT_EQ(session.finished(changed).text(), "3");  // the change had "2"

  const auto dropped = session.start(request({}, "/from"));
  ASSERT_TRUE(answered.waitFor(3));
  dropped->cancel();
  EXPECT_EQ(session.finished(dropped).code(), URLError::cancelled);
}

}  // namespace
}  // namespace tarn::test

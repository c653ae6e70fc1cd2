#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Curl/ProxySettings.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/Ports.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <deque>

namespace tarn::test {
namespace {

using Variables = std::vector<std::pair<std::string, std::string>>;

/// Exactly these proxy variables, until the end of the scope.
class ProxyEnvironment {
 public:
  explicit ProxyEnvironment(const Variables& variables) {
    for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy",
                             "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
      scopes_.push_back(std::make_unique<ScopedEnvironment>(name, std::nullopt));
    }
    for (const auto& [name, value] : variables) {
      scopes_.push_back(std::make_unique<ScopedEnvironment>(name, value));
    }
  }
  ~ProxyEnvironment() {
    while (!scopes_.empty()) scopes_.pop_back();
  }
  ProxyEnvironment(const ProxyEnvironment&) = delete;
  ProxyEnvironment& operator=(const ProxyEnvironment&) = delete;

 private:
  std::deque<std::unique_ptr<ScopedEnvironment>> scopes_;
};

struct SettingsRow {
  Variables variables;
  std::string http;
  std::string https;
  std::string exceptions;
};

TEST(ProxySettings, ComeFromTheEnvironment) {
  const std::vector<SettingsRow> rows{
      {{}, "", "", ""},
      {{{"http_proxy", "http://a:1"}}, "http://a:1", "", ""},
      {{{"HTTP_PROXY", "http://a:1"}}, "", "", ""},
      {{{"https_proxy", "http://a:1"}}, "", "http://a:1", ""},
      {{{"HTTPS_PROXY", "http://a:1"}}, "", "http://a:1", ""},
      {{{"https_proxy", "b"}, {"HTTPS_PROXY", "c"}}, "", "b", ""},
      {{{"all_proxy", "d"}}, "d", "d", ""},
      {{{"ALL_PROXY", "d"}}, "d", "d", ""},
      {{{"http_proxy", "a"}, {"all_proxy", "d"}}, "a", "d", ""},
      {{{"http_proxy", ""}, {"all_proxy", "d"}}, "d", "d", ""},
      {{{"no_proxy", "x,y"}}, "", "", "x,y"},
      {{{"NO_PROXY", "*"}}, "", "", "*"},
  };
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(i);
    const ProxyEnvironment environment(rows[i].variables);
    const auto settings = detail::ProxySettings::fromEnvironment();
    EXPECT_EQ(settings.http, rows[i].http);
    EXPECT_EQ(settings.https, rows[i].https);
    EXPECT_EQ(settings.exceptions, rows[i].exceptions);
  }
}

TEST(ProxySettings, LeaveOutExceptions) {
  struct Row {
    const char* exceptions;
    const char* host;
    bool direct;
  };
  for (const auto& row : std::vector<Row>{
           {"", "a.example", false},
           {"a.example", "a.example", true},
           {"a.example", "A.Example", true},
           {"A.EXAMPLE.", "a.example", true},
           {"a.example", "a.example.", true},
           {"example", "a.example", true},
           {".example", "a.example", true},
           {".example", "example", true},
           {"example", "anexample", false},
           {"a.example", "example", false},
           {"x,a.example", "a.example", true},
           {"x a.example", "a.example", true},
           {" x , ,a.example\t", "a.example", true},
           {".", "a.example", false},
           {"*", "a.example", true},
           {"*", "127.0.0.1", true},
           {"x, *", "a.example", true},
           {"*.example", "a.example", false},
           {"127.0.0.1", "127.0.0.1", true},
           {"0.1", "127.0.0.1", false},
           {"10.0.0.0/8", "10.1.2.3", true},
           {"10.0.0.0/8", "11.1.2.3", false},
           {"10.128.0.0/9", "10.127.0.1", false},
           {"10.1.2.3/32", "10.1.2.3", true},
           {"10.1.2.3/32", "10.1.2.2", false},
           {"0.0.0.0/0", "10.1.2.3", true},
           {"0.0.0.0/0", "[::1]", false},
           {"10.0.0.0/33", "10.0.0.0", false},
           {"10.0.0.0/", "10.0.0.0", false},
           {"10.0.0.0/8x", "10.0.0.0", false},
           {"10.0.0.0/8", "10.example", false},
           {"::1", "[::1]", true},
           {"[::1]", "[0:0:0:0:0:0:0:1]", true},
           {"fe80::/10", "[fe80::1]", true},
           {"fe80::/10", "[fec0::1]", false},
       }) {
    SCOPED_TRACE(row.exceptions + std::string(" for ") + row.host);
    const detail::ProxySettings settings{"http://plain", "http://secure", row.exceptions};
    const auto plain = detail::Origin::of(URL("http://" + std::string(row.host)));
    const auto secure = detail::Origin::of(URL("https://" + std::string(row.host)));
    ASSERT_TRUE(plain && secure);
    EXPECT_EQ(settings.proxyFor(*plain), row.direct ? "" : "http://plain");
    EXPECT_EQ(settings.proxyFor(*secure), row.direct ? "" : "http://secure");
  }
}

TEST(Proxy, IsSentTheWholeAddress) {
  ScriptedServer proxy;
  proxy.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "by proxy"); });
  const ProxyEnvironment environment(Variables{{"http_proxy", proxy.url("")}});
  RecordedSession session;
  const auto loaded = session.load("http://nonexistent.invalid/path?q=1");
  EXPECT_EQ(loaded.text(), "by proxy");
  EXPECT_EQ(proxy.request(0).target, "http://nonexistent.invalid/path?q=1");
  EXPECT_EQ(proxy.request(0).header("Host"), "nonexistent.invalid");
}

TEST(Proxy, IsReadOnceWhenTheSessionIsMade) {
  ScriptedServer proxy;
  ScriptedServer server;
  const ProxyEnvironment without(Variables{});
  RecordedSession before;
  const ScopedEnvironment with("http_proxy", proxy.url(""));
  before.load(server.url("/"));
  EXPECT_EQ(server.requestCount(), 1u);
  RecordedSession after;
  after.load(server.url("/"));
  EXPECT_EQ(proxy.requestCount(), 1u);
  EXPECT_EQ(server.requestCount(), 1u);
}

TEST(Proxy, IsLeftOutForExceptions) {
  ScriptedServer proxy;
  ScriptedServer server;
  const ProxyEnvironment environment(
      Variables{{"http_proxy", proxy.url("")}, {"no_proxy", "example.com,127.0.0.1"}});
  RecordedSession session;
  session.load(server.url("/"));
  EXPECT_EQ(server.requestCount(), 1u);
  EXPECT_EQ(server.request(0).target, "/");
  EXPECT_EQ(proxy.requestCount(), 0u);
}

TEST(Proxy, MakesATunnelForSecureAddresses) {
  ScriptedServer proxy;
  proxy.setHandler([](const ReceivedRequest&) { return Script().respond(407, {}, "who?"); });
  const ProxyEnvironment environment(Variables{{"https_proxy", proxy.url("")}});
  RecordedSession session;
  const auto loaded = session.load("https://nonexistent.invalid/secret");
  EXPECT_EQ(loaded.code(), URLError::httpProxyConnectionFailure);
  EXPECT_EQ(loaded.response, nullptr);
  EXPECT_EQ(proxy.request(0).method, "CONNECT");
  EXPECT_EQ(proxy.request(0).target, "nonexistent.invalid:443");
}

TEST(Proxy, ThatCannotBeFoundIsItsOwnFailure) {
  const ProxyEnvironment environment(Variables{{"http_proxy", "http://nonexistent.invalid:3128"}});
  RecordedSession session;
  EXPECT_EQ(session.load("http://127.0.0.1/").code(), URLError::httpProxyConnectionFailure);
}

}  // namespace
}  // namespace tarn::test

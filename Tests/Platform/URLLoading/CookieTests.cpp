#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/System.hpp>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

/// A server that every plain host name leads to: the proxy of the sessions made meanwhile.
class AllHosts : public ScriptedServer {
 public:
  /// What the address, whatever its query, sets with its answer.
  void set(const std::string& address, std::vector<std::string> cookies, int status = 200) {
    HeaderList fields;
    for (auto& cookie : cookies) fields.emplace_back("Set-Cookie", std::move(cookie));
    route(address.substr(0, address.find('?')), Script().respond(status, std::move(fields)));
  }
  /// The field Cookie of the last request; empty for none.
  std::string sent() const { return requests().back().header("Cookie").value_or(""); }

 private:
  const ScopedEnvironment http_{"http_proxy", url("")};
  const ScopedEnvironment exceptions_{"no_proxy", std::nullopt};
  const ScopedEnvironment otherExceptions_{"NO_PROXY", std::nullopt};
};

struct CookieRow {
  std::vector<std::string> set;
  std::string sent;
  const char* by = "http://www.example.com/a/b";
  const char* to = "http://www.example.com/a/c";
};

void check(const std::vector<CookieRow>& rows) {
  for (const auto& row : rows) {
    std::string trace = row.by;
    for (const auto& cookie : row.set) trace += " | " + cookie.substr(0, 100);
    SCOPED_TRACE(trace + " -> " + row.to);
    AllHosts hosts;
    hosts.set(row.by, row.set);
    RecordedSession session;
    EXPECT_EQ(session.load(row.by).status(), 200);
    session.load(row.to);
    EXPECT_EQ(hosts.sent(), row.sent);
  }
}

// RFC 6265, 5.2
TEST(Cookies, NamesAndValues) {
  check({
      {{"a=b"}, "a=b"},
      {{"  a = b c  ; Path=/"}, "a=b c"},
      {{"a=b; Unknown=x; y"}, "a=b"},
      {{"a="}, "a="},
      {{"a=\"b c\""}, "a=\"b c\""},
      {{"a=b=c=="}, "a=b=c=="},
      {{"a=b, c=d"}, "a=b, c=d"},
      {{"a=\xC3\xA4"}, "a=\xC3\xA4"},
      {{"=b"}, ""},
      {{"a"}, ""},
      {{""}, ""},
      {{"a=b\x01"}, ""},
      {{"a\x7F=b"}, ""},
  });
}

// RFC 6265, 5.1.3, 5.2.3 and 5.3
TEST(Cookies, Domains) {
  constexpr const char* by = "http://www.example.com/";
  constexpr const char* parent = "http://example.com/";
  constexpr const char* sibling = "http://shop.example.com/";
  constexpr const char* child = "http://deep.www.example.com/";
  check({
      {{"a=b"}, "a=b", by, by},
      {{"a=b"}, "a=b", by, "http://WWW.EXAMPLE.COM/"},
      {{"a=b"}, "a=b", by, "http://www.example.com:81/"},
      // Without a domain it is the host's own.
      {{"a=b"}, "", by, parent},
      {{"a=b"}, "", by, sibling},
      {{"a=b"}, "", by, child},
      {{"a=b; Domain="}, "", by, child},
      {{"a=b; Domain=www.example.com"}, "a=b", by, child},
      {{"a=b; Domain=example.com"}, "a=b", by, sibling},
      {{"a=b; Domain=example.com"}, "a=b", by, parent},
      {{"a=b; Domain=.example.com"}, "a=b", by, parent},
      {{"a=b; domain=EXAMPLE.com"}, "a=b", by, sibling},
      {{"a=b; Domain=example.com"}, "", by, "http://badexample.com/"},
      {{"a=b; Domain=example.com"}, "", by, "http://example.com.evil.org/"},
      // Of somebody else.
      {{"a=b; Domain=other.com"}, "", by, "http://other.com/"},
      {{"a=b; Domain=other.com"}, "", by, by},
      {{"a=b; Domain=shop.example.com"}, "", by, sibling},
      {{"a=b; Domain=deep.www.example.com"}, "", by, child},
      {{"a=b; Domain=ample.com"}, "", by, "http://ample.com/"},
      // Of everybody.
      {{"a=b; Domain=com"}, "", by, sibling},
      {{"a=b; Domain=.com"}, "", by, by},
      {{"a=b; Domain=co.uk"}, "", "http://shop.co.uk/", "http://other.co.uk/"},
      {{"a=b; Domain=shop.co.uk"}, "a=b", "http://shop.co.uk/", "http://www.shop.co.uk/"},
      {{"a=b; Domain=github.io"}, "", "http://ann.github.io/", "http://bob.github.io/"},
      {{"a=b"}, "a=b", "http://ann.github.io/", "http://ann.github.io/"},
      // Of addresses.
      {{"a=b; Domain=127.0.0.2"}, "a=b", "http://127.0.0.2/", "http://127.0.0.2/"},
      {{"a=b; Domain=0.0.2"}, "", "http://127.0.0.2/", "http://127.0.0.2/"},
      {{"a=b"}, "a=b", "http://[::2]/", "http://[::2]/"},
      {{"a=b"}, "", "http://127.0.0.2/", "http://127.0.0.3/"},
      {{"a=b"}, "a=b", "http://intranet/", "http://intranet/"},
  });
}

// RFC 6265, 5.1.4 and 5.2.4
TEST(Cookies, Paths) {
  constexpr const char* by = "http://h.example.com/a/b";
  check({
      {{"a=b"}, "a=b", by, "http://h.example.com/a"},
      {{"a=b"}, "a=b", by, "http://h.example.com/a/"},
      {{"a=b"}, "a=b", by, "http://h.example.com/a/c/d?e"},
      {{"a=b"}, "", by, "http://h.example.com/"},
      {{"a=b"}, "", by, "http://h.example.com/ab"},
      {{"a=b"}, "", by, "http://h.example.com/A/b"},
      {{"a=b"}, "a=b", "http://h.example.com/a?/b/c", "http://h.example.com/x"},
      {{"a=b; Path=/"}, "a=b", by, "http://h.example.com/x"},
      {{"a=b; path=/x"}, "a=b", by, "http://h.example.com/x/y"},
      {{"a=b; Path=/x"}, "", by, "http://h.example.com/xy"},
      {{"a=b; Path=/x/"}, "a=b", by, "http://h.example.com/x/"},
      {{"a=b; Path=x"}, "a=b", by, "http://h.example.com/a/c"},
      {{"a=b; Path="}, "a=b", by, "http://h.example.com/a/c"},
      {{"a=b; Path=/x; Path=/y"}, "a=b", by, "http://h.example.com/y"},
  });
}

// RFC 6265, 5.1.1, 5.2.1 and 5.2.2
TEST(Cookies, Expiry) {
  check({
      {{"a=b; Max-Age=1000"}, "a=b"},
      {{"a=b; Max-Age=0"}, ""},
      {{"a=b; Max-Age=-1"}, ""},
      {{"a=b; Max-Age=99999999999999999999"}, "a=b"},
      {{"a=b; Max-Age=1000; Expires=Thu, 01 Jan 1970 00:00:01 GMT"}, "a=b"},
      {{"a=b; Max-Age=0; Expires=Fri, 01 Jan 2100 00:00:00 GMT"}, ""},
      {{"a=b; Expires=Fri, 01 Jan 2100 00:00:00 GMT; Max-Age=0"}, ""},
      {{"a=b; Expires=Fri, 01 Jan 2100 00:00:00 GMT"}, "a=b"},
      {{"a=b; Expires=Friday, 01-Jan-60 00:00:00 GMT"}, "a=b"},
      {{"a=b; Expires=Fri Jan  1 00:00:00 2100"}, "a=b"},
      {{"a=b; Expires=Sat, 01 Jan 2000 00:00:00 GMT"}, ""},
      {{"a=b; Expires=Saturday, 01-Jan-00 00:00:00 GMT"}, ""},
      {{"a=b; Expires=Sat Jan  1 00:00:00 2000"}, ""},
      {{"a=b; Expires=never"}, "a=b"},
      {{"a=b; Expires="}, "a=b"},
      // An expired one removes that of the same name, domain and path only.
      {{"a=b", "a=; Max-Age=0"}, ""},
      {{"a=b", "a=; Max-Age=0; Path=/other"}, "a=b"},
      {{"a=b; Domain=example.com", "a=; Max-Age=0"}, "a=b"},
  });
}

// RFC 6265, 5.3 and 5.4
TEST(Cookies, ReplacingAndOrder) {
  check({
      {{"a=1", "a=2"}, "a=2"},
      {{"a=1; Path=/", "a=2; Path=/a"}, "a=2; a=1"},
      {{"a=2; Path=/a", "a=1; Path=/"}, "a=2; a=1"},
      {{"a=1; Path=/", "b=2; Path=/a/", "c=3; Path=/a/b"}, "b=2; a=1"},
  });
}

// RFC 6265, 4.1.3 of its successor
TEST(Cookies, PrefixesOfNamesAreKept) {
  check({
      {{"__Secure-a=b"}, ""},
      {{"__Secure-a=b; Secure"}, ""},
      {{"__Host-a=b; Path=/"}, ""},
      {{"a=b; HttpOnly"}, "a=b"},
      {{"a=b; SameSite=Strict"}, "a=b"},
  });
}

// A name of this machine's that is not "localhost": to that one, secure cookies travel any way.
constexpr const char* loopbackName = "app.localhost";

TLSOptions loopbackTLS() {
  LeafOptions leaf;
  leaf.dnsNames = {loopbackName};
  const auto files = trustedAuthority().issue(leaf);
  TLSOptions tls;
  tls.certFile = files.certFile;
  tls.keyFile = files.keyFile;
  return tls;
}

std::string loopbackURL(const ScriptedServer& server, const std::string& path) {
  const auto scheme = server.url().substr(0, server.url().find(':'));
  return scheme + "://" + loopbackName + ":" + std::to_string(server.port()) + path;
}

TEST(Cookies, SecureOnesTravelOverTLSOnly) {
  const auto tls = loopbackTLS();
  struct Row {
    const char* set;
    bool bySecure;
    bool toSecure;
    const char* sent;
  };
  for (const auto& row : std::vector<Row>{
           {"a=b; Secure", true, true, "a=b"},
           {"a=b; Secure", true, false, ""},
           {"a=b; Secure", false, true, ""},
           {"a=b", true, false, "a=b"},
           {"a=b", false, true, "a=b"},
           {"__Secure-a=b; Secure", true, true, "__Secure-a=b"},
           {"__Secure-a=b", true, true, ""},
           {"__Host-a=b; Secure; Path=/", true, true, "__Host-a=b"},
           {"__Host-a=b; Secure; Path=/x", true, true, ""},
           {"__Host-a=b; Secure; Path=/; Domain=app.localhost", true, true, ""},
       }) {
    SCOPED_TRACE(std::string(row.set) + (row.bySecure ? " by https" : " by http") +
                 (row.toSecure ? " to https" : " to http"));
    ScriptedServer secure(tls);
    ScriptedServer plain;
    auto& setting = row.bySecure ? secure : plain;
    auto& asked = row.toSecure ? secure : plain;
    setting.route("/set", Script().respond(200, {{"Set-Cookie", row.set}}));
    RecordedSession session;
    EXPECT_EQ(session.load(loopbackURL(setting, "/set")).status(), 200);
    session.load(loopbackURL(asked, "/get"));
    EXPECT_EQ(asked.requests().back().header("Cookie").value_or(""), row.sent);
  }
}

TEST(Cookies, AnInsecureOneDoesNotReplaceASecureOne) {
  ScriptedServer secure(loopbackTLS());
  ScriptedServer plain;
  secure.route("/", Script().respond(200, {{"Set-Cookie", "a=good; Secure"}}));
  plain.route("/", Script().respond(200, {{"Set-Cookie", "a=evil"}}));
  RecordedSession session;
  session.load(loopbackURL(secure, "/"));
  session.load(loopbackURL(plain, "/"));
  session.load(loopbackURL(secure, "/get"));
  EXPECT_EQ(secure.requests().back().header("Cookie"), "a=good");
}

TEST(Cookies, LargeOnesAndMany) {
  for (const std::size_t size : {1000u, 4000u, 5000u}) {
    SCOPED_TRACE(size);
    const std::string cookie = "a=" + std::string(size, 'x');
    AllHosts hosts;
    hosts.set("http://h.example.com/", {cookie});
    RecordedSession session;
    session.load("http://h.example.com/");
    session.load("http://h.example.com/get");
    EXPECT_EQ(hosts.sent(), size <= 4000 ? cookie : "");
  }
  AllHosts hosts;
  std::vector<std::string> cookies;
  for (int i = 0; i < 50; ++i) cookies.push_back("n" + std::to_string(i) + "=v");
  hosts.set("http://h.example.com/", cookies);
  RecordedSession session;
  session.load("http://h.example.com/");
  session.load("http://h.example.com/get");
  const auto sent = "; " + hosts.sent() + "; ";
  for (const auto& cookie : cookies) {
    EXPECT_NE(sent.find("; " + cookie + "; "), std::string::npos) << cookie;
  }
}

TEST(Cookies, OfOtherAnswersAreKeptToo) {
  for (const int status : {401, 404, 500}) {
    AllHosts hosts;
    hosts.set("http://h.example.com/", {"a=b"}, status);
    RecordedSession session;
    session.load("http://h.example.com/");
    session.load("http://h.example.com/get");
    EXPECT_EQ(hosts.sent(), "a=b") << status;
  }
}

TEST(Cookies, AcrossRedirectsEachHostHasItsOwn) {
  AllHosts hosts;
  hosts.route("http://a.example.com/", Script().respond(302, {{"Location", "http://b.example.org/"},
                                                              {"Set-Cookie", "of=a"}}));
  hosts.route(
      "http://b.example.org/",
      Script().respond(302, {{"Location", "http://a.example.com/x"}, {"Set-Cookie", "of=b"}}));
  RecordedSession session;
  session.load("http://a.example.com/");
  ASSERT_EQ(hosts.requestCount(), 3u);
  EXPECT_EQ(hosts.request(1).header("Cookie"), std::nullopt);
  EXPECT_EQ(hosts.request(2).header("Cookie"), "of=a");
}

TEST(Cookies, OfTrailersAreNone) {
  AllHosts hosts;
  hosts.route("http://h.example.com/",
              Script().respondChunked(200, {}, {"x"}, {{"Set-Cookie", "trailer=1"}}));
  RecordedSession session;
  session.load("http://h.example.com/");
  session.load("http://h.example.com/get");
  EXPECT_EQ(hosts.sent(), "");
}

}  // namespace
}  // namespace tarn::test

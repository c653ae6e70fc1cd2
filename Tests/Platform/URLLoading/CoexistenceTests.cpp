#include <Platform/URLLoading/LoadingFixture.hpp>
#include <Support/LoopbackAddress.hpp>
#include <Support/System.hpp>

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <sys/socket.h>
#include <thread>

// What the library does to the process that it lives in.
namespace tarn::test {
namespace {

TLSOptions tlsOptions() {
  const auto files = trustedAuthority().issue();
  TLSOptions options;
  options.certFile = files.certFile;
  options.keyFile = files.keyFile;
  return options;
}

// -- Descriptors

std::uint16_t localPort(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

TEST(Descriptors, AreAllClosedByExec) {
  ScriptedServer plain;
  ScriptedServer secure(tlsOptions());
  for (auto* server : {&plain, &secure})
    server->setHandler([](const ReceivedRequest&) { return Script().respond(200).stall(); });
  std::vector<int> before;
  for (const auto& descriptor : openDescriptors()) before.push_back(descriptor.number);
  RecordedSession one;
  RecordedSession two;
  for (auto* session : {&one, &two}) {
    EXPECT_EQ(session->load(plain.url("/")).code(), 0);
    EXPECT_EQ(session->load(secure.localhostUrl("/")).code(), 0);
    EXPECT_NE(session->load("http://nonexistent.invalid/").code(), 0);
  }
  int pairs = 0;
  int connections = 0;
  for (const auto& descriptor : openDescriptors()) {
    const bool isNew = std::find(before.begin(), before.end(), descriptor.number) == before.end();
    const auto port = descriptor.socketDomain == AF_INET ? localPort(descriptor.number) : 0;
    if (!isNew || port == plain.port() || port == secure.port()) continue;
    EXPECT_TRUE(descriptor.closesOnExec) << descriptor.number << " " << descriptor.target;
    if (descriptor.socketDomain == AF_UNIX) ++pairs;
    if (descriptor.socketDomain == AF_INET) ++connections;
  }
  EXPECT_EQ(pairs, 4);  // two for each session
  EXPECT_EQ(connections, 4);
}

TEST(Descriptors, OfTheApplicationStayAsTheyAre) {
  ScriptedServer server;
  std::array<int, 2> quiet{};
  std::array<int, 2> busy{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, quiet.data()), 0);
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, busy.data()), 0);
  ASSERT_EQ(write(busy[0], "x", 1), 1);
  RecordedSession session;
  EXPECT_EQ(session.load(server.url("/")).status(), 404);
  for (const auto& descriptor : openDescriptors()) {
    for (const int own : {quiet[0], quiet[1], busy[0], busy[1]}) {
      if (descriptor.number == own) {
        EXPECT_FALSE(descriptor.closesOnExec);
      }
    }
  }
  for (const int own : {quiet[0], quiet[1], busy[0], busy[1]}) close(own);
}

// -- Signals

using Actions = std::array<struct sigaction, NSIG>;

Actions signalActions() {
  Actions actions{};
  for (int number = 1; number < NSIG; ++number)
    sigaction(number, nullptr, &actions[static_cast<std::size_t>(number)]);
  return actions;
}

/// Uploads, to servers that hang up in the middle of it, in a process that a broken pipe would end.
[[noreturn]] void uploadInVain() {
  std::signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  const auto before = signalActions();
  ScriptedServer plain;
  ScriptedServer secure(tlsOptions());
  int failures = 0;
  for (auto* server : {&plain, &secure}) {
    server->setHandler([](const ReceivedRequest&) { return Script::afterHead().reset(); },
                       ScriptedServer::When::headRead);
    RecordedSession session;
    for (int i = 0; i < 10; ++i) {
      auto request = RecordedSession::request(server->localhostUrl("/"));
      request.setHTTPMethod("PUT");
      request.setHTTPBody(Data(std::string(4 << 20, 'x')));
      if (session.load(request).code() != 0) ++failures;
    }
  }
  const auto after = signalActions();
  for (std::size_t i = 1; i < after.size(); ++i) {
    if (after[i].sa_handler != before[i].sa_handler) std::exit(1);
  }
  std::exit(failures == 20 ? 7 : 2);
}

TEST(Signals, AreTheApplications) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(uploadInVain(), testing::ExitedWithCode(7), "");
}

// -- An application that uses the same libraries

std::size_t discard(const char*, std::size_t, std::size_t size, void*) { return size; }

bool loadByCurl(const std::string& url) {
  curl_global_init(CURL_GLOBAL_ALL);
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_CAINFO, trustedAuthority().caFile().c_str());
  curl_easy_setopt(easy, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
  const auto result = curl_easy_perform(easy);
  curl_easy_cleanup(easy);
  curl_global_cleanup();
  return result == CURLE_OK;
}

bool shakeHandsByOpenSSL(std::uint16_t port) {
  SSL_CTX* context = SSL_CTX_new(TLS_client_method());
  SSL_CTX_load_verify_file(context, trustedAuthority().caFile().c_str());
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
  BIO* bio = BIO_new_ssl_connect(context);
  BIO_set_conn_hostname(bio, ("127.0.0.1:" + std::to_string(port)).c_str());
  const bool done = BIO_do_connect(bio) == 1 && BIO_do_handshake(bio) == 1;
  BIO_free_all(bio);
  SSL_CTX_free(context);
  ERR_clear_error();
  return done;
}

TEST(Coexistence, WithAnApplicationsOwnUseOfLibcurlAndOpenSSL) {
  ScriptedServer server(tlsOptions());
  server.setHandler([](const ReceivedRequest&) { return Script().respond(200, {}, "hello"); });
  std::atomic<bool> over{false};
  std::atomic<int> byCurl{0};
  std::atomic<int> byOpenSSL{0};
  std::atomic<int> faults{0};
  const auto repeat = [&](std::atomic<int>& count, const auto& action) {
    return std::thread([&, action] {
      while (!over) {
        if (!action()) ++faults;
        ++count;
      }
    });
  };
  const auto url = server.localhostUrl("/application");
  const auto port = server.port();
  auto curl = repeat(byCurl, [url] { return loadByCurl(url); });
  auto openSSL = repeat(byOpenSSL, [port] { return shakeHandsByOpenSSL(port); });
  for (int round = 0; round < 10; ++round) {
    RecordedSession session;
    std::vector<std::shared_ptr<URLSessionDataTask>> tasks;
    for (int i = 0; i < 20; ++i) tasks.push_back(session.start(server.localhostUrl("/")));
    for (const auto& task : tasks) EXPECT_EQ(session.finished(task).text(), "hello");
  }
  over = true;
  curl.join();
  openSSL.join();
  EXPECT_EQ(faults, 0);
  EXPECT_GT(byCurl, 0);
  EXPECT_GT(byOpenSSL, 0);
}

}  // namespace
}  // namespace tarn::test

// TLS connections over loopback, a request on each: a session whose delegate leaves the server to
// the default handling, beside libcurl's easy interface that trusts anybody. In one process and one
// run. The number of connections may be given as argument.

#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/URLLoading/URLSession.hpp>

#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <netinet/in.h>
#include <signal.h>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

/// A certificate for this machine that signs itself, with its key.
struct Identity {
  EVP_PKEY* key = EVP_EC_gen("P-256");
  X509* certificate = X509_new();

  Identity() {
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    const auto* text = reinterpret_cast<const unsigned char*>("localhost");
    X509_NAME_add_entry_by_NID(name, NID_commonName, MBSTRING_UTF8, text, -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509_EXTENSION* host =
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, "DNS:localhost");
    if (X509_add_ext(certificate, host, -1) != 1 ||
        X509_sign(certificate, key, EVP_sha256()) <= 0) {
      fail("no certificate");
    }
    X509_EXTENSION_free(host);
  }
  ~Identity() {
    X509_free(certificate);
    EVP_PKEY_free(key);
  }
  Identity(const Identity&) = delete;
  Identity& operator=(const Identity&) = delete;
};

/// A server in a child process: one connection after another, a request each.
class TLSServer {
 public:
  explicit TLSServer(const Identity& identity) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, generic, length) != 0 || ::listen(listener, 16) != 0 ||
        ::getsockname(listener, generic, &length) != 0) {
      throw std::system_error(errno, std::generic_category(), "bench server");
    }
    port_ = ntohs(address.sin_port);
    child_ = ::fork();
    if (child_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      SSL_CTX* context = SSL_CTX_new(TLS_server_method());
      SSL_CTX_use_certificate(context, identity.certificate);
      SSL_CTX_use_PrivateKey(context, identity.key);
      for (;;) serve(context, ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    }
    ::close(listener);
  }
  ~TLSServer() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  TLSServer(const TLSServer&) = delete;
  TLSServer& operator=(const TLSServer&) = delete;

  std::string url() const { return "https://localhost:" + std::to_string(port_) + "/"; }

 private:
  static void serve(SSL_CTX* context, int connection) {
    constexpr std::string_view answer =
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 5\r\n\r\nhello";
    char request[4096];  // what clients send here comes at once
    SSL* ssl = SSL_new(context);
    SSL_set_fd(ssl, connection);
    if (SSL_accept(ssl) == 1 && SSL_read(ssl, request, sizeof request) > 0) {
      SSL_write(ssl, answer.data(), static_cast<int>(answer.size()));
      SSL_shutdown(ssl);
    }
    SSL_free(ssl);
    ::close(connection);
  }

  pid_t child_ = -1;
  int port_ = 0;
};

/// Leaves every server to the default handling.
class DefaultHandling final : public tarn::URLSessionDelegate {
 public:
  void didReceiveChallenge(tarn::URLSession&, const tarn::URLAuthenticationChallenge&,
                           tarn::URLChallengeHandler completionHandler) override {
    ++challenges;
    completionHandler(tarn::URLSessionAuthChallengeDisposition::performDefaultHandling,
                      std::nullopt);
  }
  void didComplete(tarn::URLSession&, tarn::URLSessionTask&,
                   const std::optional<tarn::Error>& error) override {
    if (error) fail(error->message().c_str());
    done.signal();
  }

  std::atomic<int> challenges{0};
  tarn::DispatchSemaphore done{0};
};

void runLibrary(const std::string& url, int connections) {
  const auto delegate = std::make_shared<DefaultHandling>();
  const auto session = tarn::URLSession::make(tarn::URLSessionConfiguration::ephemeral(), delegate);
  for (int index = 0; index < connections; ++index) {
    session->dataTask(tarn::URLRequest(tarn::URL(url)))->resume();
    delegate->done.wait();
  }
  session->finishTasksAndInvalidate();
  if (delegate->challenges != connections) fail("a connection was not asked about");
}

void runCurl(const std::string& url, int connections) {
  for (int index = 0; index < connections; ++index) {
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    // Its own store of anchors would be read anew for each connection.
    curl_easy_setopt(easy, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(
        easy, CURLOPT_WRITEFUNCTION,
        +[](char*, std::size_t, std::size_t size, void*) { return size; });
    if (curl_easy_perform(easy) != CURLE_OK) fail("libcurl failed");
    curl_easy_cleanup(easy);
  }
}

double cpuMilliseconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto milliseconds = [](const timeval& time) {
    return double(time.tv_sec) * 1e3 + double(time.tv_usec) * 1e-3;
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

double cpuOf(const std::function<void()>& run) {
  const double before = cpuMilliseconds();
  run();
  return cpuMilliseconds() - before;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int connections = argc > 1 ? std::atoi(argv[1]) : 100;
  if (connections < 1) fail("The number of connections is a positive number.");
  const Identity identity;
  const TLSServer server(identity);  // before any thread
  const auto anchors =
      std::filesystem::temp_directory_path() / ("tls-bench-" + std::to_string(::getpid()) + ".pem");
  std::FILE* file = std::fopen(anchors.c_str(), "w");
  if (file == nullptr || PEM_write_X509(file, identity.certificate) != 1) fail("no anchor");
  std::fclose(file);
  ::setenv("SSL_CERT_FILE", anchors.c_str(), 1);

  runLibrary(server.url(), 1);  // what is done once a process, the reading of the anchors included
  runCurl(server.url(), 1);
  std::filesystem::remove(anchors);
  constexpr int repetitions = 5;
  std::vector<double> library;
  std::vector<double> reference;
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    library.push_back(cpuOf([&] { runLibrary(server.url(), connections); }) / connections);
    reference.push_back(cpuOf([&] { runCurl(server.url(), connections); }) / connections);
  }
  std::printf("%d TLS connections, CPU of the client for each:\n", connections);
  std::printf("TarnService   %6.3f ms, the server asked about and verified\n", median(library));
  std::printf("libcurl easy  %6.3f ms, nothing verified\n", median(reference));
  std::printf("difference    %+6.3f ms (at most 2)\n", median(library) - median(reference));
}

#include <Support/LoopbackAddress.hpp>
#include <Support/NginxServer.hpp>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn::test {
namespace {

constexpr const char* program = "/usr/sbin/nginx";
// nginx takes these as already listening; so its ports are known before it starts and nobody else
// can get them.
constexpr int inheritedHttp = 3;
constexpr int inheritedHttps = 4;

[[noreturn]] void fail(const std::string& what, int error = errno) {
  throw std::runtime_error("nginx: " + what + ": " + std::strerror(error));
}

class Socket {
 public:
  explicit Socket(int descriptor) : descriptor_(descriptor) {
    if (descriptor < 0) fail("socket");
  }
  ~Socket() { ::close(descriptor_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

std::uint16_t listenOnAnyPort(int socket) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(socket, generic, size) != 0 || ::listen(socket, SOMAXCONN) != 0 ||
      ::getsockname(socket, generic, &size) != 0) {
    fail("listening");
  }
  return ntohs(address.sin_port);
}

/// A copy far above the numbers that the child's sockets get, so that placing one cannot overwrite
/// the other.
int highCopy(int descriptor) { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 100); }

std::string configuration(const std::string& directory, const CertificateFiles& files,
                          std::uint16_t httpPort, std::uint16_t httpsPort, bool http2) {
  // The worker would otherwise become an account that may not look into the directory.
  std::string text = ::geteuid() == 0 ? "user root;\n" : "";
  text += R"(daemon off;
worker_processes 1;
pid DIR/nginx.pid;
error_log DIR/error.log notice;
events { worker_connections 1024; }
http {
  access_log off;
  server_tokens off;
  keepalive_requests 100000;
  client_max_body_size 0;
  client_body_temp_path DIR/body;
  proxy_temp_path DIR/proxy;
  fastcgi_temp_path DIR/fastcgi;
  uwsgi_temp_path DIR/uwsgi;
  scgi_temp_path DIR/scgi;
  types { text/plain txt; application/json json; }
  default_type application/octet-stream;
  server {
    listen 127.0.0.1:HTTP_PORT;
    listen 127.0.0.1:TLS_PORT ssl PROTOCOL;
    server_name localhost;
    ssl_certificate CERT_FILE;
    ssl_certificate_key KEY_FILE;
    root DIR/www;
    absolute_redirect off;
    add_header X-Protocol $server_protocol always;
    add_header X-Connection $connection always;
    location = /hello { default_type text/plain; return 200 "hello"; }
    location = /json { try_files /value.json =404; }
    location = /text { gzip on; gzip_types text/plain; gzip_min_length 1; try_files /text.txt =404; }
    location = /big { try_files /big.bin =404; }
    location = /redirect { return 302 /hello; }
    location = /post { default_type text/plain; return 200 "posted"; }
    location /upload/ { root DIR; dav_methods PUT DELETE; create_full_put_path on; }
    location / { return 404; }
  }
}
)";
  const std::array<std::pair<const char*, std::string>, 6> replacements{
      {{"DIR", directory},
       {"CERT_FILE", files.certFile},
       {"KEY_FILE", files.keyFile},
       {"HTTP_PORT", std::to_string(httpPort)},
       {"TLS_PORT", std::to_string(httpsPort)},
       {" PROTOCOL", http2 ? " http2" : ""}}};
  for (const auto& [placeholder, value] : replacements) {
    for (auto at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + value.size())) {
      text.replace(at, std::strlen(placeholder), value);
    }
  }
  return text;
}

std::string repeated(std::string_view line, std::size_t size) {
  std::string text;
  text.reserve(size + line.size());
  while (text.size() < size) text += line;
  text.resize(size);
  return text;
}

}  // namespace

NginxServer::NginxServer(TestAuthority& authority, std::size_t bigSize, bool http2)
    : bigSize_(bigSize) {
  if (::access(program, X_OK) != 0) {
    throw std::runtime_error(std::string(program) + " is missing: install Debian's nginx-light");
  }
  for (const char* name : {"www", "upload"}) {
    if (::mkdir(directory_.file(name).c_str(), 0700) != 0) fail("mkdir");
  }
  writeFile(directory_.file("www/value.json"), R"({"name":"nginx","value":42})");
  writeFile(directory_.file("www/text.txt"), textBody());
  writeFile(directory_.file("www/big.bin"), bigBody());
  {
    // Non-blocking, as nginx makes its own: it takes inherited ones as they are.
    constexpr int kind = SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
    const Socket http(::socket(AF_INET, kind, 0));
    const Socket https(::socket(AF_INET, kind, 0));
    httpPort_ = listenOnAnyPort(http.get());
    httpsPort_ = listenOnAnyPort(https.get());
    writeFile(directory_.file("nginx.conf"),
              configuration(directory_.path(), authority.issue(), httpPort_, httpsPort_, http2));
    start(http.get(), https.get());
    // Closed here, before the first request: should nginx fail, the request fails too instead of
    // waiting.
  }
  if (!answers()) {
    const std::string log = errorLog();
    stop();
    throw std::runtime_error("nginx did not start: " + log);
  }
}

NginxServer::~NginxServer() { stop(); }

void NginxServer::start(int httpSocket, int httpsSocket) {
  const Socket http(highCopy(httpSocket));
  const Socket https(highCopy(httpsSocket));
  const std::string output = directory_.file("output.log");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT,
                                     0600);
  ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, http.get(), inheritedHttp);
  ::posix_spawn_file_actions_adddup2(&actions, https.get(), inheritedHttps);
  // A client's connection inherited by nginx would stay open after the client has closed it.
  ::posix_spawn_file_actions_addclosefrom_np(&actions, inheritedHttps + 1);

  std::string prefix = directory_.path();
  std::string config = directory_.file("nginx.conf");
  std::string log = directory_.file("error.log");
  // setpriv: should the test program be killed, nginx goes with it.
  const std::array<const char*, 11> arguments{"setpriv", "--pdeathsig",  "TERM", program,
                                              "-p",      prefix.c_str(), "-c",   config.c_str(),
                                              "-e",      log.c_str(),    nullptr};
  const std::string inherited =
      "NGINX=" + std::to_string(inheritedHttp) + ";" + std::to_string(inheritedHttps) + ";";
  const std::array<const char*, 3> environment{"PATH=/usr/bin:/bin:/usr/sbin:/sbin",
                                               inherited.c_str(), nullptr};
  const int error =
      ::posix_spawn(&pid_, "/usr/bin/setpriv", &actions, nullptr,
                    const_cast<char**>(arguments.data()), const_cast<char**>(environment.data()));
  ::posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    pid_ = -1;
    fail("starting", error);
  }
}

bool NginxServer::answers() const {
  const Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const timeval limit{15, 0};
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  const sockaddr_in address = loopback(httpPort_);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return false;
  }
  constexpr std::string_view request =
      "GET /hello HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
  if (::send(socket.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) return false;
  std::string answer;
  std::array<char, 1024> piece{};
  for (;;) {
    const ssize_t size = ::recv(socket.get(), piece.data(), piece.size(), 0);
    if (size <= 0) break;
    answer.append(piece.data(), static_cast<std::size_t>(size));
  }
  return answer.find(" 200 ") != std::string::npos && answer.ends_with("hello");
}

void NginxServer::stop() noexcept {
  if (pid_ < 0) return;
  constexpr int limitMilliseconds = 5000;
  // By number: glibc 2.36 declares its own function without C linkage.
  const int handle = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
  ::kill(pid_, SIGTERM);
  pollfd exited{handle, POLLIN, 0};
  if (handle < 0 || ::poll(&exited, 1, limitMilliseconds) <= 0) ::kill(pid_, SIGKILL);
  if (handle >= 0) ::close(handle);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string NginxServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(httpPort_) + std::string(path);
}

std::string NginxServer::secureUrl(std::string_view path) const {
  return "https://localhost:" + std::to_string(httpsPort_) + std::string(path);
}

std::string NginxServer::textBody() const {
  return repeated("The quick brown fox jumps over the lazy dog.\n", 20000);
}

std::string NginxServer::bigBody() const {
  // A line's length is no power of two: a block delivered twice or in the wrong place changes the
  // content.
  return repeated("0123456789abcdefghijklmnopqrstuvwxyz\n", bigSize_);
}

std::string NginxServer::uploadedFile(const std::string& name) const {
  return directory_.file("upload/" + name);
}

std::string NginxServer::uploaded(const std::string& name) const {
  return readFile(uploadedFile(name));
}

std::string NginxServer::errorLog() const {
  std::string text;
  for (const char* name : {"output.log", "error.log"}) {
    if (const std::string path = directory_.file(name); fileExists(path)) text += readFile(path);
  }
  return text;
}

}  // namespace tarn::test

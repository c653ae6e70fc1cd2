// A body of 1 GiB to a file and from a file over loopback: the library's tasks beside libcurl's
// easy interface, in one process and one run. A size in MiB may be given as argument.

#include <Platform/Dispatch/DispatchSemaphore.hpp>
#include <Platform/URLLoading/URLSession.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <netinet/in.h>
#include <signal.h>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

/// A server in a child process: answers GET with so many bytes and takes whatever PUT sends. One
/// connection after another, a request each.
class FileServer {
 public:
  explicit FileServer(std::size_t size) {
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
      for (;;) serve(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), size);
    }
    ::close(listener);
  }
  ~FileServer() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  FileServer(const FileServer&) = delete;
  FileServer& operator=(const FileServer&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

 private:
  static void serve(int connection, std::size_t size) {
    static std::vector<char> buffer(256 * 1024, 'x');
    std::string head;
    while (head.find("\r\n\r\n") == std::string::npos) {
      const auto count = ::recv(connection, buffer.data(), buffer.size(), 0);
      if (count <= 0) break;
      head.append(buffer.data(), static_cast<std::size_t>(count));
    }
    if (head.starts_with("GET")) {
      send(connection, "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " +
                           std::to_string(size) + "\r\n\r\n");
      for (std::size_t sent = 0; sent < size; sent += buffer.size()) {
        send(connection, {buffer.data(), std::min(buffer.size(), size - sent)});
      }
    } else {
      auto left = size - (head.size() - head.find("\r\n\r\n") - 4);
      while (left > 0) {
        const auto count = ::recv(connection, buffer.data(), buffer.size(), 0);
        if (count <= 0) break;
        left -= static_cast<std::size_t>(count);
      }
      send(connection, "HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
    }
    ::close(connection);
  }

  static void send(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
      const auto count = ::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  pid_t child_ = -1;
  int port_ = 0;
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

class Delegate : public tarn::URLSessionDelegate {
 public:
  explicit Delegate(std::string target) : target_(std::move(target)) {}

  void didFinishDownloading(tarn::URLSession&, tarn::URLSessionDownloadTask&,
                            const tarn::URL& location) override {
    std::filesystem::rename(location.path(), target_);
  }
  void didComplete(tarn::URLSession&, tarn::URLSessionTask&,
                   const std::optional<tarn::Error>& error) override {
    if (error) fail(error->message());
    done_.signal();
  }
  void wait() { done_.wait(); }

 private:
  std::string target_;
  tarn::DispatchSemaphore done_{0};
};

class Library {
 public:
  explicit Library(const std::string& target)
      : delegate_(std::make_shared<Delegate>(target)),
        session_(tarn::URLSession::make(tarn::URLSessionConfiguration::ephemeral(), delegate_)) {}

  void download(const std::string& url) {
    session_->downloadTask(tarn::URLRequest(tarn::URL(url)))->resume();
    delegate_->wait();
  }
  void upload(const std::string& url, const std::string& file) {
    tarn::URLRequest request{tarn::URL(url)};
    request.setHTTPMethod("PUT");
    session_->uploadTask(request, tarn::URL::fileURL(file))->resume();
    delegate_->wait();
  }

 private:
  std::shared_ptr<Delegate> delegate_;
  std::shared_ptr<tarn::URLSession> session_;
};

// As a program would: libcurl's own functions write to and read from the file.
void transferEasy(const std::string& url, const std::string& path, bool upload) {
  FILE* file = std::fopen(path.c_str(), upload ? "rbe" : "wbe");
  if (file == nullptr) fail("cannot open " + path);
  CURL* easy = curl_easy_init();
  // As the library does: otherwise libcurl waits up to a second for a go-ahead before an upload.
  curl_slist* fields = curl_slist_append(nullptr, "Expect:");
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, fields);
  curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, 64L * 1024);
  curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024);
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  if (upload) {
    curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(easy, CURLOPT_READDATA, file);
    curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE,
                     static_cast<curl_off_t>(std::filesystem::file_size(path)));
  } else {
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, file);
  }
  const auto result = curl_easy_perform(easy);
  if (result != CURLE_OK) fail(curl_easy_strerror(result));
  curl_easy_cleanup(easy);
  curl_slist_free_all(fields);
  if (std::fclose(file) != 0) fail("cannot write " + path);
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return double(time.tv_sec) + double(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Figures {
  double cpu;
  double wall;
};

Figures measure(const std::function<void()>& run) {
  const double cpu = cpuSeconds();
  const auto start = Clock::now();
  run();
  return {cpuSeconds() - cpu, std::chrono::duration<double>(Clock::now() - start).count()};
}

Figures median(std::vector<Figures> runs) {
  std::sort(runs.begin(), runs.end(), [](auto& a, auto& b) { return a.cpu < b.cpu; });
  return runs[runs.size() / 2];
}

void compare(const char* name, std::size_t megabytes, const std::function<void()>& library,
             const std::function<void()>& easy) {
  constexpr int repetitions = 5;
  std::vector<Figures> ours;
  std::vector<Figures> theirs;
  for (int i = 0; i < repetitions; ++i) {
    ours.push_back(measure(library));
    theirs.push_back(measure(easy));
  }
  const auto print = [&](const char* client, const Figures& figures) {
    std::printf("%-10s %-12s %7.0f MiB/s of CPU %7.0f MiB/s\n", name, client,
                double(megabytes) / figures.cpu, double(megabytes) / figures.wall);
  };
  print("TarnService", median(ours));
  print("libcurl easy", median(theirs));
  std::printf("%-10s %-12s %7.2f times the throughput for each second of CPU\n\n", name, "ratio",
              median(theirs).cpu / median(ours).cpu);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1024;
  const FileServer server(megabytes << 20);
  const auto file = std::filesystem::temp_directory_path() / "file-transfer-bench";
  const auto path = file.string();
  curl_global_init(CURL_GLOBAL_ALL);
  Library library(path);
  // Both write a new file while the former is still there, and so find the same pages free.
  compare(
      "download", megabytes, [&] { library.download(server.url()); },
      [&] {
        transferEasy(server.url(), path + ".part", false);
        std::filesystem::rename(path + ".part", path);
      });
  if (std::filesystem::file_size(file) != megabytes << 20) fail("the file is not whole");
  compare(
      "upload", megabytes, [&] { library.upload(server.url(), path); },
      [&] { transferEasy(server.url(), path, true); });
  std::filesystem::remove(file);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("peak resident memory %ld MiB\n", usage.ru_maxrss / 1024);
}

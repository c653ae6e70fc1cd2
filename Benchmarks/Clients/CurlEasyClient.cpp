// libcurl's easy interface: one request after another on one handle, files by its own functions.

#include <curl/curl.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "Workload.hpp"

namespace {

using Clock = bench::Recorder::Clock;

class CurlEasyClient : public bench::Client {
 public:
  explicit CurlEasyClient(const bench::Workload& workload) : workload_(workload) {
    for (const auto& header : workload.headers) add(header.c_str());
    // Otherwise libcurl waits up to a second for a go-ahead before an upload.
    add("Expect:");
    curl_easy_setopt(easy_, CURLOPT_URL, workload.url.c_str());
    curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, headers_);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_PROXY, "");
    // The library's sizes.
    curl_easy_setopt(easy_, CURLOPT_BUFFERSIZE, 64L * 1024);
    curl_easy_setopt(easy_, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, &CurlEasyClient::onBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
  }
  ~CurlEasyClient() override {
    curl_easy_cleanup(easy_);
    curl_slist_free_all(headers_);
  }

  void run(std::size_t requests, bench::Recorder& recorder) override {
    for (std::size_t request = 0; request < requests; ++request) {
      const auto start = Clock::now();
      if (workload_.name == "download") {
        download();
        recorder.record(start, status(), std::filesystem::file_size(workload_.file));
      } else {
        body_.clear();
        if (workload_.name == "upload") {
          upload();
        } else {
          perform();
        }
        recorder.record(start, status(), body_.size());
      }
    }
  }

 private:
  using File = std::unique_ptr<FILE, int (*)(FILE*)>;

  void add(const char* header) { headers_ = curl_slist_append(headers_, header); }

  void perform() {
    if (const auto result = curl_easy_perform(easy_); result != CURLE_OK) {
      throw std::runtime_error(curl_easy_strerror(result));
    }
  }

  void download() {
    FILE* file = open("wbe");
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, nullptr);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, file);
    perform();
    if (std::fclose(file) != 0) throw std::runtime_error("cannot write the file");
  }

  void upload() {
    const File file(open("rbe"), &std::fclose);
    const auto size = static_cast<curl_off_t>(std::filesystem::file_size(workload_.file));
    curl_easy_setopt(easy_, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(easy_, CURLOPT_READDATA, file.get());
    curl_easy_setopt(easy_, CURLOPT_INFILESIZE_LARGE, size);
    perform();
    curl_off_t sent = 0;
    curl_easy_getinfo(easy_, CURLINFO_SIZE_UPLOAD_T, &sent);
    if (sent != size) throw std::runtime_error("the file was not sent whole");
  }

  FILE* open(const char* mode) const {
    FILE* file = std::fopen(workload_.file.c_str(), mode);
    if (file == nullptr) throw std::runtime_error("cannot open " + workload_.file);
    return file;
  }

  int status() const {
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    return int(status);
  }

  static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* body) {
    static_cast<std::string*>(body)->append(bytes, count);
    return count;
  }

  const bench::Workload workload_;
  CURL* easy_ = curl_easy_init();
  curl_slist* headers_ = nullptr;
  std::string body_;
};

std::unique_ptr<bench::Client> make(const bench::Workload& workload) {
  const auto& name = workload.name;
  if (name != "sequential" && name != "download" && name != "upload") return nullptr;
  return std::make_unique<CurlEasyClient>(workload);
}

}  // namespace

int main(int argc, char** argv) {
  curl_global_init(CURL_GLOBAL_ALL);
  return bench::runClient(argc, argv, make);
}

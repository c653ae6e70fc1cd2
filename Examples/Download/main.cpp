// Fetches a URL to a file, with a progress bar in a terminal and plain lines elsewhere.
//
//   Download [--resume] URL FILE
//
// Interrupted by Ctrl-C, it keeps in FILE.resume, for its owner only, what --resume needs to go on.
// Without --resume, and where FILE.resume is of another URL, it starts afresh: FILE.resume goes,
// and the part that it names stays in the temporary directory. Ends with 0, with 1 where the
// download failed, 2 where it was called wrongly and 130 where it was interrupted.

#include <TarnService/TarnService.hpp>

#include <Examples/Download/ProgressLine.hpp>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <string>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

// Receives the events of the one task, one after another. The outcome is the main thread's once the
// task is over.
class Download : public tarn::URLSessionDelegate {
 public:
  explicit Download(std::string file) : file_(std::move(file)) {}

  void didResume(tarn::URLSession&, tarn::URLSessionDownloadTask&, std::int64_t fileOffset,
                 std::int64_t) override {
    std::printf("Resuming at byte %lld\n", static_cast<long long>(fileOffset));
  }
  void didWriteData(tarn::URLSession&, tarn::URLSessionDownloadTask&, std::int64_t,
                    std::int64_t totalBytesWritten,
                    std::int64_t totalBytesExpectedToWrite) override {
    progress_.show(totalBytesWritten, totalBytesExpectedToWrite);
  }
  void didFinishDownloading(tarn::URLSession&, tarn::URLSessionDownloadTask& task,
                            const tarn::URL& location) override {
    const auto http = std::dynamic_pointer_cast<const tarn::HTTPURLResponse>(task.response());
    if (http && http->statusCode() / 100 != 2) {
      failure_ = "the server answered " + std::to_string(http->statusCode());
      return;
    }
    std::error_code error;
    std::filesystem::rename(location.path(), file_, error);
    if (error) {  // another file system, most likely
      std::filesystem::copy_file(location.path(), file_,
                                 std::filesystem::copy_options::overwrite_existing, error);
    }
    if (error) failure_ = file_ + ": " + error.message();
  }
  void didComplete(tarn::URLSession&, tarn::URLSessionTask&,
                   const std::optional<tarn::Error>& error) override {
    progress_.end();
    if (error) failure_ = error->message();
    tarn::DispatchQueue::main().async([this] { isOver_ = true; });  // lives as long as main()
  }

  bool isOver() const { return isOver_; }
  const std::string& failure() const { return failure_; }

 private:
  const std::string file_;
  examples::ProgressLine progress_;
  std::string failure_;
  bool isOver_ = false;
};

int interruptions() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

// Puts the resume data in place of what the file has held, or nothing. Only the owner may read it:
// it holds the request's header fields.
void keep(const std::optional<tarn::Data>& resumeData, const std::string& resumeFile) {
  std::error_code ignored;
  std::filesystem::remove(resumeFile, ignored);
  if (!resumeData) return;
  const int descriptor = open(resumeFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
  if (file == nullptr) return std::perror(resumeFile.c_str());
  const bool isWritten =
      std::fwrite(resumeData->bytes(), 1, resumeData->size(), file) == resumeData->size();
  if (std::fclose(file) == 0 && isWritten) return;
  std::perror(resumeFile.c_str());
  std::filesystem::remove(resumeFile, ignored);
}

// A task that goes on with what was kept of this URL, or one that starts afresh.
std::shared_ptr<tarn::URLSessionDownloadTask> makeTask(tarn::URLSession& session,
                                                       const tarn::URL& url,
                                                       const std::string& resumeFile) {
  if (std::ifstream kept(resumeFile, std::ios::binary); kept) {
    auto task =
        session.downloadTask(tarn::Data(std::string(std::istreambuf_iterator<char>(kept), {})));
    if (task->originalRequest().url() == url) return task;
    std::printf("%s is of another URL: starting afresh\n", resumeFile.c_str());
    std::filesystem::remove(resumeFile);
  }
  return session.downloadTask(tarn::URLRequest(url));
}

// Runs the main queue until the task is over. Whether it was interrupted.
bool wait(const Download& download, tarn::URLSessionDownloadTask& task, int interruption,
          const std::string& resumeFile) {
  bool interrupted = false;
  while (!download.isOver()) {
    pollfd events[] = {{tarn::MainQueue::fileDescriptor(), POLLIN, 0},
                       {interrupted ? -1 : interruption, POLLIN, 0}};
    poll(events, 2, -1);
    tarn::MainQueue::drain();
    if (events[1].revents == 0) continue;
    interrupted = true;
    task.cancel([resumeFile](const std::optional<tarn::Data>& resumeData) {
      keep(resumeData, resumeFile);
    });
  }
  return interrupted;
}

}  // namespace

int main(int argc, char** argv) try {
  const bool resumes = argc > 1 && std::string(argv[1]) == "--resume";
  if (argc != (resumes ? 4 : 3)) {
    std::fputs("usage: Download [--resume] URL FILE\n", stderr);
    return 2;
  }
  const tarn::URL url(argv[argc - 2]);
  const std::string file = argv[argc - 1];
  const std::string resumeFile = file + ".resume";
  const int interruption = interruptions();

  if (!resumes) std::filesystem::remove(resumeFile);
  const auto download = std::make_shared<Download>(file);
  const auto session = tarn::URLSession::make(tarn::URLSessionConfiguration::ephemeral(), download);
  const auto task = makeTask(*session, url, resumeFile);
  task->resume();

  if (wait(*download, *task, interruption, resumeFile) && !download->failure().empty()) {
    const bool canGoOn = std::filesystem::exists(resumeFile);
    std::fprintf(stderr, "Download: interrupted%s\n", canGoOn ? "; --resume goes on" : "");
    return 130;
  }
  if (!download->failure().empty()) {
    std::fprintf(stderr, "Download: %s\n", download->failure().c_str());
    return 1;
  }
  std::filesystem::remove(resumeFile);
  std::printf("Saved %s\n", file.c_str());
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Download: %s\n", error.what());
  return 2;
}

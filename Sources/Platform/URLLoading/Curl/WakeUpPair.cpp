#include <Platform/URLLoading/Curl/WakeUpPair.hpp>

#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <memory>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <vector>

namespace tarn::detail {

namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

// Nothing is on its way in either direction.
bool isQuiet(int socket) noexcept {
  int received = 0;
  int sent = 0;
  return ioctl(socket, FIONREAD, &received) == 0 && received == 0 &&
         ioctl(socket, SIOCOUTQ, &sent) == 0 && sent == 0;
}

bool couldBeOfThePair(int descriptor) noexcept {
  int domain = 0;
  socklen_t size = sizeof domain;
  return getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX &&
         fcntl(descriptor, F_GETFD) == 0 && isQuiet(descriptor);
}

std::vector<int> candidates() {
  std::vector<int> found;
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir("/proc/self/fd"));
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    const int descriptor = std::atoi(entry->d_name);  // 0 for "." and ".."
    if (descriptor > 0 && couldBeOfThePair(descriptor)) found.push_back(descriptor);
  }
  return found;
}

}  // namespace

// The pair is what is busy between a call that wakes the handle up and one that takes notice, and
// at no other time.
void closeWakeUpPairOnExec(CURLM* multi) {
  auto pair = candidates();
  curl_multi_wakeup(multi);
  std::erase_if(pair, isQuiet);
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);
  for (const int socket : pair) {
    if (isQuiet(socket)) fcntl(socket, F_SETFD, FD_CLOEXEC);
  }
}

}  // namespace tarn::detail

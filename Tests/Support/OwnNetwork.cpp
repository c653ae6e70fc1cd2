#include <Support/OwnNetwork.hpp>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <net/if.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::test {
namespace {

constexpr const char* ownNetworkVariable = "TARN_TEST_OWN_NETWORK";
constexpr const char* interface = "lo";
constexpr const char* alias = "lo:1";

void change(unsigned long what, ifreq& request) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const int result = ioctl(socket, what, &request);
  const int error = errno;
  close(socket);
  if (result != 0) throw std::runtime_error(std::string("ioctl: ") + std::strerror(error));
}

ifreq named(const char* name) {
  ifreq request{};
  std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", name);
  return request;
}

void setAddress(const char* name, const char* address) {
  ifreq request = named(name);
  auto& place = reinterpret_cast<sockaddr_in&>(request.ifr_addr);
  place.sin_family = AF_INET;
  if (inet_pton(AF_INET, address, &place.sin_addr) != 1) throw std::runtime_error(address);
  change(SIOCSIFADDR, request);
}

void setFlags(const char* name, short flags) {
  ifreq request = named(name);
  request.ifr_flags = flags;
  change(SIOCSIFFLAGS, request);
}

struct Ended {
  int status;
  std::string output;
};

Ended run(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("popen");
  std::string text;
  std::array<char, 4096> buffer;
  while (const auto count = std::fread(buffer.data(), 1, buffer.size(), pipe))
    text.append(buffer.data(), count);
  return {pclose(pipe), text};
}

// Empty where no network can be made, with the reason.
Ended launcher() {
  Ended last{};
  for (const char* command : {"unshare --user --map-root-user --net", "unshare --net"}) {
    last = run(std::string(command) + " true");
    if (last.status == 0) return {0, command};
  }
  return last;
}

}  // namespace

void OwnNetwork::bringUp() { setFlags(interface, IFF_UP); }
void OwnNetwork::takeAddressesAway() { setAddress(interface, "0.0.0.0"); }
void OwnNetwork::giveAddressBack() { setAddress(interface, "127.0.0.1"); }
void OwnNetwork::addAddress(const std::string& address) { setAddress(alias, address.c_str()); }
void OwnNetwork::removeAddress() { setFlags(alias, 0); }

void inOwnNetwork(const std::function<void(OwnNetwork&)>& body) {
  if (std::getenv(ownNetworkVariable) != nullptr) {
    OwnNetwork network;
    return body(network);
  }
  static const Ended start = launcher();
  if (start.status != 0) GTEST_SKIP() << "no network namespace can be made: " << start.output;
  const auto& test = *testing::UnitTest::GetInstance()->current_test_info();
  const auto name = std::string(test.test_suite_name()) + "." + test.name();
  // As one whole, although this process may run only its share of the tests.
  const auto ended =
      run("env -u GTEST_TOTAL_SHARDS -u GTEST_SHARD_INDEX " + std::string(ownNetworkVariable) +
          "=1 " + start.output + " " + std::filesystem::read_symlink("/proc/self/exe").string() +
          " --gtest_filter=" + name);
  EXPECT_EQ(ended.status, 0) << ended.output;
  EXPECT_NE(ended.output.find("[  PASSED  ] 1 test."), std::string::npos) << ended.output;
}

}  // namespace tarn::test

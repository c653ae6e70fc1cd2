#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace tarn::test {

/// The network of a process that has one of its own. Throws std::runtime_error when the system
/// refuses a change.
class OwnNetwork {
 public:
  /// The first time, this brings 127.0.0.1 and ::1 with it.
  void bringUp();
  /// From then on no packet goes anywhere.
  void takeAddressesAway();
  /// Makes 127.0.0.1 reachable again.
  void giveAddressBack();
  /// A further address of this machine, IPv4; one at a time.
  void addAddress(const std::string& address);
  void removeAddress();
};

/// Runs the present test in a process of its own, with a network of its own in which nothing is up
/// yet; `body` is the test. To be all that the test does. Skips it where the system allows no such
/// network.
void inOwnNetwork(const std::function<void(OwnNetwork&)>& body);

}  // namespace tarn::test

#pragma once
#include <Support/System.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tarn::test {

struct CertificateFiles {
  std::string certFile;  // PEM: the leaf, then its chain
  std::string keyFile;
};

/// A leaf certificate to be made; the defaults give one that a client on this machine accepts.
struct LeafOptions {
  enum class Signer { root, intermediate, expiredIntermediate, unknownRoot, itself, plainLeaf };
  enum class Purpose { server, client };
  enum class Key { ec256, rsa1024 };

  std::string commonName = "localhost";
  std::vector<std::string> dnsNames = {"localhost"};
  std::vector<std::string> addresses = {"127.0.0.1"};
  std::chrono::seconds notBefore = std::chrono::hours(-1);  // counted from now
  std::chrono::seconds notAfter = std::chrono::hours(24);
  Signer signer = Signer::root;  // plainLeaf: by a certificate that is no authority
  bool includeChain = true;      // the intermediate, or the plain leaf, follows in the file
  Purpose purpose = Purpose::server;
  Key key = Key::ec256;
  bool corruptSignature = false;

  static LeafOptions expired();
  static LeafOptions notYetValid();
  static LeafOptions wrongHost();
  static LeafOptions commonNameOnly();
  static LeafOptions selfSigned();
  static LeafOptions unknownRoot();
  static LeafOptions intermediate(bool includeChain = true);
  static LeafOptions client(std::string name);
};

/// A certificate authority made for the run; its files go with it.
///
/// Throws std::runtime_error when OpenSSL fails. Not for use by two threads at once.
class TestAuthority {
 public:
  TestAuthority();
  ~TestAuthority();
  TestAuthority(const TestAuthority&) = delete;
  TestAuthority& operator=(const TestAuthority&) = delete;

  /// The root that clients shall trust, PEM.
  std::string caFile() const;
  std::string intermediateFile() const;
  /// A root that has nothing to do with `caFile`.
  std::string unknownCaFile() const;
  /// Makes a leaf; each call makes new files.
  CertificateFiles issue(const LeafOptions& options = {});

  /// The first certificate of a PEM file in DER form.
  static std::string der(const std::string& pemFile);

 private:
  class Impl;
  TemporaryDirectory directory_;
  std::unique_ptr<Impl> impl_;
};

}  // namespace tarn::test

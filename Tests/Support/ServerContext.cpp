#include <Support/ServerContext.hpp>

namespace tarn::test {

namespace asio = boost::asio;

namespace {

int versionNumber(TLSVersion version) {
  switch (version) {
    case TLSVersion::any:
      return 0;
    case TLSVersion::tls10:
      return TLS1_VERSION;
    case TLSVersion::tls11:
      return TLS1_1_VERSION;
    case TLSVersion::tls12:
      return TLS1_2_VERSION;
    case TLSVersion::tls13:
      return TLS1_3_VERSION;
  }
  return 0;
}

int verifyMode(ClientCertificate wish) {
  switch (wish) {
    case ClientCertificate::none:
      return asio::ssl::verify_none;
    case ClientCertificate::request:
      return asio::ssl::verify_peer;
    case ClientCertificate::require:
      return asio::ssl::verify_peer | asio::ssl::verify_fail_if_no_peer_cert;
  }
  return asio::ssl::verify_none;
}

}  // namespace

asio::ssl::context serverContext(const TLSOptions& options) {
  asio::ssl::context context(asio::ssl::context::tls_server);
  SSL_CTX* native = context.native_handle();
  // The server shall offer weak keys and old versions too: refusing them is the client's part.
  SSL_CTX_set_security_level(native, 0);
  const bool old = options.maximum == TLSVersion::tls10 || options.maximum == TLSVersion::tls11;
  const int minimum =
      options.minimum == TLSVersion::any && old ? TLS1_VERSION : versionNumber(options.minimum);
  if (minimum != 0) SSL_CTX_set_min_proto_version(native, minimum);
  SSL_CTX_set_max_proto_version(native, versionNumber(options.maximum));
  constexpr unsigned char sessionContext[] = "tarn";
  SSL_CTX_set_session_id_context(native, sessionContext, sizeof sessionContext);

  context.use_certificate_chain_file(options.certFile);
  context.use_private_key_file(options.keyFile, asio::ssl::context::pem);
  context.set_verify_mode(verifyMode(options.clientCertificate));
  if (!options.clientCaFile.empty()) {
    context.load_verify_file(options.clientCaFile);
    SSL_CTX_set_client_CA_list(native, SSL_load_client_CA_file(options.clientCaFile.c_str()));
  }
  return context;
}

}  // namespace tarn::test

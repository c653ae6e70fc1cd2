#pragma once
#include <Support/ScriptedServer.hpp>

#include <boost/asio/ssl/context.hpp>

namespace tarn::test {

/// The TLS of a server. Throws boost::system::system_error for files that can't be used.
boost::asio::ssl::context serverContext(const TLSOptions& options);

}  // namespace tarn::test

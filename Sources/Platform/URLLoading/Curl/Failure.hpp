#pragma once

#include <Platform/Types/URLError.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::detail {

struct TLSRecord;

/// What is known of a transfer that libcurl gave up, all that its URLError is decided by.
struct Failure {
  int curlCode = 0;            ///< a CURLcode other than 0
  int systemError = 0;         ///< errno of the last failed system call, or 0
  long proxyAnswer = 0;        ///< the status of an answer to CONNECT, or 0
  std::string_view curlText;   ///< libcurl's own words; may be empty
  bool withoutRoute = false;   ///< the machine has no route to the host, or to any name server
  bool requestSent = false;    ///< something of the request went out
  bool answerStarted = false;  ///< a status line came
  bool lengthAnnounced = false;
  bool bodyStarted = false;
  const TLSRecord* tls = nullptr;  ///< null for plain HTTP
};

/// The code of a failure.
std::int32_t errorCode(const Failure& failure) noexcept;
/// The code with a short text; `failingURL` comes without user information.
URLError makeError(const Failure& failure, std::string failingURL);

}  // namespace tarn::detail

#pragma once

#include <Tambour/FileRepresentable.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>
#include <TarnService/Settings.hpp>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn::detail {

/// The text that stands for a body in the log and in curl commands: "0 bytes", the text of a short
/// one, or the call that gives a long one in a debugger, for which the body is kept.
std::string httpDebugSummary(const std::optional<Data>& body);
/// The same for a body that lies in a file: one too large to be kept is named as curl names it.
std::string httpDebugSummary(const URL& bodyFile);

/// What is known of a finished request, for its line in the log.
struct DebugReport {
  std::string method;
  URL url;
  std::optional<Error> error;
  HTTPStatus status = HTTPStatus::unknown;
  std::string response;
  std::optional<HTTPHeaderFields> headers;
  std::optional<Data> data;
  std::optional<std::string> curlCommand;
};

/// How much is to be written now: `none` also where nobody listens to debug lines.
HTTPVerbosityLevel debugOutputLevel() noexcept;
void printDebugReport(DebugReport report, HTTPVerbosityLevel level);
/// Logs that the line of a request could not be put together.
void logDebugFailure(const Error& error) noexcept;

std::vector<std::string> curlParts(const HTTPMethod& method, const std::string& address,
                                   const URLRequest::HeaderFields& headers);
std::string joined(const std::vector<std::string>& parts);

/// What a request can tell of itself for people.
template <class R>
struct DebugOperations {
  static std::vector<std::string> curlCommand(const R& request) {
    const URL url = property::url(request);
    auto parts = curlParts(property::method(request), url.absoluteString(),
                           request.urlRequest().allHTTPHeaderFields());
    if constexpr (property::bodyExists<R>) {
      const auto& body = property::body(request);
      if constexpr (FileRepresentable<BodyOf<R>>) {
        parts.push_back(" -d " + httpDebugSummary(body.fileURL()));
      } else if constexpr (SendableBody<BodyOf<R>>) {
        parts.push_back(" -d " + httpDebugSummary(bytesOf(body)));
      }
    }
    return parts;
  }

  /// Costs one look at the settings where nothing is to be written.
  template <class Response>
  static void print(const R& request, const std::optional<Error>& error, const Response& response,
                    const std::optional<Data>& data) noexcept {
    const auto level = debugOutputLevel();
    if (level == HTTPVerbosityLevel::none) return;
    try {
      DebugReport report;
      report.method = HTTPMethod(property::method(request)).rawValue;
      report.url = property::url(request);
      report.error = error;
      report.status = response.status;
      report.response = response.debugStatusAndHeaders();
      report.headers = response.headers;
      report.data = data;
      if (TarnService::shouldLogCurls) report.curlCommand = curlCommandOrNothing(request);
      printDebugReport(std::move(report), level);
    } catch (...) {
      logDebugFailure(Error::current());
    }
  }

 private:
  // What can't be generated any more, such as a body whose file is gone, must not lose the line.
  static std::optional<std::string> curlCommandOrNothing(const R& request) noexcept {
    try {
      return request.curlCommand();
    } catch (...) {
      logDebugFailure(Error::current());
      return std::nullopt;
    }
  }
};

}  // namespace tarn::detail

#include <Platform/Types/URLError.hpp>
#include <Tambour/File.hpp>
#include <TarnService/Diagnostics/HTTPRequestableDebugAdditions.hpp>
#include <TarnService/Diagnostics/Logger.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>

namespace tarn::detail {

namespace {

constexpr std::size_t firstLengthKept = 80;  // bytes; shorter texts stand in the log themselves
constexpr std::uintmax_t largestFileRead = 16 * 1024 * 1024;

// Code points: where people see one character, there may be several.
std::size_t characterCount(std::string_view text) noexcept {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  }));
}

// Only the transport's own number means that the load was cancelled.
bool isCancelled(const std::optional<Error>& error) {
  return error && error->code() == URLError::cancelled;
}

std::string responseText(const DebugReport& report) {
  if (isCancelled(report.error)) return "RESPONSE Cancelled";
  std::string text = "RESPONSE status: " + std::to_string(report.status.rawValue());
  if (report.error) text += " error: " + report.error->localizedDescription();
  return text;
}

// The command repeats the request, who sends it included, but the log is read by others.
std::string withoutUser(std::string curlCommand, const URL& url) {
  const std::string& address = url.absoluteString();
  const auto place = curlCommand.find(address);
  if (place != curlCommand.npos) curlCommand.replace(place, address.size(), url.redacted());
  return curlCommand;
}

std::map<std::string, std::string> mapOf(const HTTPHeaderFields& headers) {
  return {headers.begin(), headers.end()};
}

}  // namespace

std::string httpDebugSummary(const std::optional<Data>& body) {
  if (!body || body->empty()) return "0 bytes";
  const bool isText = isValidUTF8(body->view());
  if (isText && body->size() < firstLengthKept) return std::string(body->view());
  const std::size_t length = isText ? characterCount(body->view()) : body->size();
  return "[" + std::to_string(length) + (isText ? " chars" : " bytes") +
         ": TarnService.httpDebugData(\"" + keepHTTPDebugData(*body) + "\")]";
}

std::string httpDebugSummary(const URL& bodyFile) {
  const std::string path = bodyFile.path();
  std::error_code failure;
  const auto size = std::filesystem::file_size(path, failure);
  if (!failure && size > largestFileRead) return "@" + path;
  return httpDebugSummary(File(bodyFile).asData());
}

HTTPVerbosityLevel debugOutputLevel() noexcept {
  const auto level = TarnService::verbosity.load();
  return level != HTTPVerbosityLevel::none && Logger::isEnabled(LogLevel::debug)
             ? level
             : HTTPVerbosityLevel::none;
}

void printDebugReport(DebugReport report, HTTPVerbosityLevel level) {
  LogDetails details{
      {"status", std::to_string(report.status.rawValue()) + " (" +
                     std::string(report.status.description()) + ")"},
      {"response", std::move(report.response)},
  };
  if (isCancelled(report.error)) details.emplace("error", "Cancelled");
  if (report.curlCommand) {
    details.emplace("curl", withoutUser(std::move(*report.curlCommand), report.url));
  }
  if (level == HTTPVerbosityLevel::verbose) {
    details.emplace("body", httpDebugSummary(report.data));
    if (report.headers) details.emplace("headers", mapOf(*report.headers));
    if (report.error) details.insert_or_assign("error", report.error->localizedDescription());
  }
  logger().debug(
      "REQUEST " + report.method + " '" + report.url.redacted() + "' " + responseText(report),
      std::move(details), {}, SourceLocation::in("printDebugOutput(error:tarnResponse:data:)"));
}

void logDebugFailure(const Error& error) noexcept {
  try {
    logger().error("A request can't be described: " + error.localizedDescription());
  } catch (...) {
    // Out of memory: the request is answered all the same.
  }
}

std::vector<std::string> curlParts(const HTTPMethod& method, const std::string& address,
                                   const URLRequest::HeaderFields& headers) {
  std::vector<std::string> parts{"curl -X " + method.rawValue + " '" + address + "'"};
  // The blank before each field makes two of them with the one that joins: kept, tools that read
  // the log know it.
  for (const auto& [name, value] : headers) {
    parts.push_back(" -H \"" + name + ": " + value + "\"");
  }
  return parts;
}

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const auto& part : parts) {
    if (&part != &parts.front()) text += ' ';
    text += part;
  }
  return text;
}

}  // namespace tarn::detail

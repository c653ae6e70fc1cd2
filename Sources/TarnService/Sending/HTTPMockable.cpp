#include <Platform/Dispatch/ForkSafety.hpp>
#include <Platform/Files/FileManager.hpp>
#include <Platform/URLLoading/Detail/SuggestedFilename.hpp>
#include <TarnService/Sending/HTTPMockable.hpp>
#include <TarnService/Transport/FileManagerAdditions.hpp>
#include <TarnService/Transport/QueueLabel.hpp>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace tarn::detail {
namespace {

/// Stands for the address of a response that has none. A text that is no URL ends the process.
const URL& placeholder() noexcept {
  const NoForkScope scope;  // not while it is being made
  static const auto& address = *new URL("localhost");
  return address;
}

std::string filename(const MockValues& values, const HTTPURLResponse& response) {
  if (!values.suggestedFilename && !values.mimeType) return response.suggestedFilename();
  const auto type = values.mimeType ? values.mimeType : response.mimeType();
  return suggestedFilename(values.suggestedFilename, response.url(), type.value_or(""));
}

}  // namespace

const DispatchQueue& mockBackgroundQueue() {
  const NoForkScope scope;  // not while it is being made
  static const auto& queue =
      *new DispatchQueue(queueLabel("tarnservice.mock"), QualityOfService::background);
  return queue;
}

std::shared_ptr<const HTTPURLResponse> MockValues::urlResponse() const {
  HTTPHeaderFields fields;
  if (headers) {
    for (const auto& [name, value] : *headers) fields.add(name, value);
  }
  return std::make_shared<HTTPURLResponse>(
      url.value_or(placeholder()), static_cast<int>(status.rawValue()), "1.1", std::move(fields));
}

URL MockValues::makeFile(const HTTPURLResponse& response) const {
  const std::string name = filename(*this, response);
  const URL directory = makeTemporaryDirectory();
  URL file = directory.appendingPathComponent(name);
  std::ofstream stream(file.path(), std::ios::binary);
  if (stream && responseData) stream << responseData->view();
  if (stream) stream.flush();
  if (stream) return file;
  const int reason = errno;  // of the step that failed: the ones after it were left out
  stream.close();
  std::error_code ignored;
  std::filesystem::remove_all(directory.path(), ignored);
  throw FileError("Writing", file.path(), reason);
}

}  // namespace tarn::detail

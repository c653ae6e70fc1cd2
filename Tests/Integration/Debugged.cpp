// Logs the answers to two requests on stderr and calls logged(), where a debugger stops it.

#include <TarnService/TarnService.hpp>

#include <optional>
#include <string>

extern "C" {

// What a debugger calls to find out whether it can call anything here.
[[gnu::used, gnu::noinline]] int answer() {
  asm volatile("");
  return 42;
}

[[gnu::noinline]] void logged() { asm volatile(""); }
}

int main() {
  using namespace tarn;
  Logger::setDefaultSink(LogSink::standardError(LogLevel::debug));
  TarnService::verbosity = HTTPVerbosityLevel::verbose;
  const DataGetRequest request(URL("http://127.0.0.1/"));
  std::string text;
  for (int line = 1; line <= 20; ++line) text += "line " + std::to_string(line) + ", ";
  for (const auto& body : {Data(text), Data(std::string_view("\xFF\x00\x1F", 3))}) {
    request.printDebugOutput(std::nullopt, DataResponse(body, std::nullopt, nullptr, std::nullopt),
                             body);
  }
  logged();
}

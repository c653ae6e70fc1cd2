// Shows on stderr what the library tells of a finished request, and how to repeat it.
//
//   Debugging [URL]    asks a service inside this program, or the one at the URL

#include <TarnService/TarnService.hpp>

#include <Examples/Support/LoopbackService.hpp>
#include <cstdio>
#include <memory>

int main(int argc, char** argv) try {
  std::unique_ptr<examples::LoopbackService> embedded;
  if (argc < 2) {
    embedded = std::make_unique<examples::LoopbackService>(
        [](const auto&) { return examples::LoopbackService::Answer{.body = "tea, milk"}; });
  }

  // [switch on]
  tarn::Logger::setDefaultSink(tarn::LogSink::standardError(tarn::LogLevel::debug));
  tarn::TarnService::verbosity = tarn::HTTPVerbosityLevel::verbose;
  tarn::TarnService::shouldLogCurls = true;
  // [switch on]

  const tarn::DataGetRequest request{tarn::URL(embedded ? embedded->url() : argv[1])};
  request.send(tarn::DispatchQueue::main(),
               [](const tarn::DataResponse&) { tarn::MainQueue::stop(); });
  tarn::MainQueue::run();
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "Debugging: %s\n", error.what());
  return 1;
}

#include <Platform/Types/Detail/UserInformation.hpp>
#include <Platform/Types/FatalError.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarn {
namespace {

std::atomic<FatalErrorHook> fatalErrorHook = nullptr;
std::atomic<UncaughtErrorHook> uncaughtErrorHook = nullptr;
std::atomic<TroubleHook> troubleHook = nullptr;

int printedSize(std::string_view text) noexcept {
  return static_cast<int>(text.substr(0, 65536).size());
}

}  // namespace

void fatalError(std::string_view message, SourceLocation location) noexcept {
  std::fprintf(stderr, "Fatal error: %.*s (%s:%d)\n", printedSize(message), message.data(),
               location.file, location.line);
  // Taken out first: a hook that fails itself comes back here.
  if (const auto hook = fatalErrorHook.exchange(nullptr)) {
    try {
      hook(message, location);
    } catch (...) {
      std::fputs("Fatal error: the hook for fatal errors has failed\n", stderr);
    }
  }
  std::abort();
}

void reportUncaughtError(const Error& error, std::string_view where) noexcept try {
  if (const auto hook = uncaughtErrorHook.load()) return hook(error, where);
  const std::string line = "Uncaught error in " + std::string(where) + ": " + error.domain() +
                           " (" + std::to_string(error.code()) +
                           "): " + detail::withoutUserInformation(error.message()) + "\n";
  std::fputs(line.c_str(), stderr);
} catch (...) {
  std::fputs("Uncaught error that could not be reported\n", stderr);
}

void reportTrouble(std::string_view message) noexcept try {
  if (const auto hook = troubleHook.load()) return hook(message);
  std::fprintf(stderr, "%.*s\n", printedSize(message), message.data());
} catch (...) {
  std::fputs("Trouble that could not be reported\n", stderr);
}

FatalErrorHook setFatalErrorHook(FatalErrorHook hook) noexcept {
  return fatalErrorHook.exchange(hook);
}

UncaughtErrorHook setUncaughtErrorHook(UncaughtErrorHook hook) noexcept {
  return uncaughtErrorHook.exchange(hook);
}

TroubleHook setTroubleHook(TroubleHook hook) noexcept { return troubleHook.exchange(hook); }

}  // namespace tarn

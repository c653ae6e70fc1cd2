#pragma once

#include <Platform/Types/Error.hpp>
#include <Platform/Types/SourceLocation.hpp>

#include <string_view>

namespace tarn {

using FatalErrorHook = void (*)(std::string_view message, SourceLocation location);
using UncaughtErrorHook = void (*)(const Error& error, std::string_view where);
using TroubleHook = void (*)(std::string_view message);

/// Ends the process: writes the message and its place on stderr, calls the hook, and aborts.
[[noreturn]] void fatalError(std::string_view message,
                             SourceLocation location = SourceLocation::current()) noexcept;

/// Tells of an error that user code let escape from a callback; the process goes on. Without a
/// hook, one line on stderr. Callable from any thread.
void reportUncaughtError(const Error& error, std::string_view where) noexcept;

/// Tells of something that hinders the program and is no error of any one call. Without a hook, one
/// line on stderr. Callable from any thread.
void reportTrouble(std::string_view message) noexcept;

/// What sees a fatal error before the process ends, so that the logging layer can record it; null
/// for nothing. A fatal error inside the hook ends the process at once. Answers the hook before.
FatalErrorHook setFatalErrorHook(FatalErrorHook hook) noexcept;

/// What is told of uncaught errors instead of stderr; null for stderr. Answers the hook before.
UncaughtErrorHook setUncaughtErrorHook(UncaughtErrorHook hook) noexcept;

/// What is told of trouble instead of stderr; null for stderr. Answers the hook before.
TroubleHook setTroubleHook(TroubleHook hook) noexcept;

}  // namespace tarn

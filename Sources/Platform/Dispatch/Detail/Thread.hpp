#pragma once

namespace tarn::detail {

/// Starts a detached thread of this library: named, with the application's signals blocked, so that
/// handlers run on the application's own threads. False where the system grants no thread.
bool startThread(const char* name, void (*body)(void*) noexcept, void* argument) noexcept;

}  // namespace tarn::detail

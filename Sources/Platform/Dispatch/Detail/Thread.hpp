#pragma once

#include <cstddef>
#include <pthread.h>

namespace tarn::detail {

/// Starts a thread of this library: named, with the application's signals blocked, so that handlers
/// run on the application's own threads. False where the system grants no thread.
///
/// Detached, unless the caller takes `joinable` in order to join it.
bool startThread(const char* name, void (*body)(void*) noexcept, void* argument,
                 pthread_t* joinable = nullptr) noexcept;

/// How many processors the process, that is its main thread, may run on.
std::size_t usableProcessors() noexcept;

}  // namespace tarn::detail

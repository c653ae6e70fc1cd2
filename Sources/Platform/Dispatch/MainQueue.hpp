#pragma once

#include <Platform/Types/TimeInterval.hpp>

#include <cstddef>

namespace tarn {

/// Drains the main queue: a program calls run() on its main thread, or calls drain() from its own
/// event loop whenever fileDescriptor() is readable.
///
/// Items run on the draining thread only, one at a time; the queue drained from two threads at once
/// or run() inside one of its own items is a fatal error. An exception that leaves an item is
/// reported and the queue goes on.
class MainQueue {
 public:
  MainQueue() = delete;

  /// Runs items as they come, blocking in between, until stop() is called.
  static void run();

  /// As run(), for at most `limit` of real time (checked between items); true when stopped, false
  /// when time ran out.
  static bool run(TimeInterval limit);

  /// Ends the run in progress after its current item; with none in progress, the next one ends
  /// before its first item. Callable from any thread; items left over wait for the next run() or
  /// drain().
  static void stop();

  /// Runs what waits now, without blocking and without what is added meanwhile; returns the number
  /// run.
  ///
  /// Inside an item of the main queue it runs nothing.
  static std::size_t drain();

  /// A file descriptor that polls readable while items wait; the same one for the life of the
  /// process.
  ///
  /// For poll, select and epoll only: never read, write or close it. Throws std::system_error where
  /// the system grants none.
  static int fileDescriptor();
};

}  // namespace tarn

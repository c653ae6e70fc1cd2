#pragma once

#include <Platform/URLLoading/URLSession.hpp>
#include <TarnService/Transport/ThreadSafeDictionary.hpp>
#include <TarnService/Transport/URLSessionTaskRef.hpp>

#include <concepts>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tarn {

/// Owns a URL session, makes tasks on it and routes their events back to the requests that started
/// them.
///
/// The operations are callable from any thread; the report operations run the record's callback on
/// the calling thread, which is the delegate queue's when they are called from a delegate.
class HTTPTaskProducer {
 public:
  virtual ~HTTPTaskProducer() = default;
  HTTPTaskProducer(const HTTPTaskProducer&) = delete;
  HTTPTaskProducer& operator=(const HTTPTaskProducer&) = delete;

  virtual std::shared_ptr<URLSession> session() = 0;
  /// Invalidates the session and puts a new one in its place; tasks of the old one end as
  /// cancelled.
  virtual void resetSession() = 0;

  /// Stores the record under the key of its task; a record of an earlier session under the same key
  /// is replaced.
  void addTaskRefToQueue(std::shared_ptr<URLSessionTaskRef> ref) const;
  /// Cancels a task that waits for connectivity unless its request is willing to wait.
  void checkWaitForConnectivity(const URLSessionTask& forTask) const;
  /// Adds bytes to the body in the task's record.
  void write(Data data, std::int64_t forTaskIdentifier) const;
  /// Calls the data callback with the body. A record with a file callback ends the process: it is a
  /// programming error.
  void reportSuccess(std::int64_t forTaskIdentifier,
                     const std::shared_ptr<const URLResponse>& urlResponse) const;
  /// Calls the record's callback with the error; bytes that came before are not passed on.
  void reportFailure(std::int64_t forTaskIdentifier,
                     const std::shared_ptr<const URLResponse>& urlResponse,
                     const std::optional<Error>& error) const;

 protected:
  HTTPTaskProducer() = default;

  // For delegate events, which know their task: the same, but certain of the record even where a
  // task of a newer session, or of another producer of the class, has taken over the key.
  void write(Data data, const URLSessionTask& forTask) const;
  void reportCompletion(const URLSessionTask& task, const std::optional<Error>& error) const;

 private:
  using TaskRef = std::shared_ptr<URLSessionTaskRef>;

  const std::string& description() const;
  std::string key(std::int64_t forTaskIdentifier) const;
  TaskRef taskRef(std::int64_t taskIdentifier) const;
  TaskRef taskRef(const URLSessionTask& task) const;
  TaskRef endedTaskRef(const URLSessionTask& task) const;

  static void write(Data data, const TaskRef& ref, std::int64_t taskIdentifier);
  static void reportSuccess(const TaskRef& ref, std::int64_t taskIdentifier,
                            const std::shared_ptr<const URLResponse>& urlResponse);
  static void reportFailure(const TaskRef& ref, std::int64_t taskIdentifier,
                            const std::shared_ptr<const URLResponse>& urlResponse,
                            const std::optional<Error>& error);

  mutable std::once_flag described_;
  mutable std::string description_;
};

/// A producer of tasks whose body is gathered in memory.
class HTTPDataTaskProducer : public HTTPTaskProducer {
 public:
  /// A new suspended task and its record. Throws InvalidRequestError and the like where no task can
  /// be made of the request.
  virtual std::shared_ptr<URLSessionTask> create(const URLRequest& forRequest,
                                                 bool shouldWaitForConnectivity,
                                                 URLSessionTaskRef::DataCompletion completion);
};

/// The records of all producers, by task key: the identifier of the task and the class of its
/// producer, as in "7-TarnService.DataTaskProducer".
///
/// A record is never removed, only replaced by a later task with the same key, as sessions number
/// their tasks afresh.
ThreadSafeDictionary<std::string, std::shared_ptr<URLSessionTaskRef>>& taskDictionary();

}  // namespace tarn

#pragma once

#include <Platform/Dispatch/Mutex.hpp>
#include <TarnService/Transport/HTTPTaskProducer.hpp>

#include <memory>

namespace tarn {

/// Makes the tasks of plain requests, on an ephemeral session with default settings.
///
/// A session that becomes invalid, or is reset, is replaced by a new one at the next use. A session
/// keeps its producer alive: one that is no longer wanted is let go by invalidating its session.
class DataTaskProducer final : public HTTPDataTaskProducer,
                               public URLSessionDelegate,
                               public std::enable_shared_from_this<DataTaskProducer> {
 public:
  static std::shared_ptr<DataTaskProducer> make();
  /// The producer that requests use unless they name another. Made on first use; lives as long as
  /// the process.
  static const std::shared_ptr<DataTaskProducer>& shared();
  /// The delegate queue of every session that this class makes.
  static const std::shared_ptr<OperationQueue>& sessionQueue();

  /// Made on first use and kept, until it becomes invalid or is reset.
  std::shared_ptr<URLSession> session() override;
  void resetSession() override;

  void didBecomeInvalid(URLSession& session, const std::optional<Error>& error) override;
  void taskIsWaitingForConnectivity(URLSession& session, URLSessionTask& task) override;
  void didReceiveData(URLSession& session, URLSessionDataTask& task, Data data) override;
  void didComplete(URLSession& session, URLSessionTask& task,
                   const std::optional<Error>& error) override;

 private:
  DataTaskProducer() = default;

  std::shared_ptr<URLSession> makeSession();

  Mutex mutex_;
  std::shared_ptr<URLSession> session_ TARN_GUARDED_BY(mutex_);
};

/// Replaces the sessions of the shared producers; their running requests end as cancelled.
void resetDefaultTaskProducers();

}  // namespace tarn

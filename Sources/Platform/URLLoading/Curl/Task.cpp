#include <Platform/Types/FatalError.hpp>
#include <Platform/URLLoading/Curl/Engine.hpp>
#include <Platform/URLLoading/Curl/Session.hpp>
#include <Platform/URLLoading/Curl/SessionCore.hpp>
#include <Platform/URLLoading/Curl/Task.hpp>
#include <Platform/URLLoading/Curl/Transfer.hpp>

#include <algorithm>

namespace tarn::detail {

namespace {

/// Hands the delegate's answer to a question to the loop, once. Dropped without an answer, it
/// cancels the task, which would otherwise wait for ever.
class DelegateAnswer {
 public:
  DelegateAnswer(std::shared_ptr<CurlTask> task, Engine& engine)
      : task_(std::move(task)), engine_(engine) {}
  DelegateAnswer(const DelegateAnswer&) = delete;
  DelegateAnswer& operator=(const DelegateAnswer&) = delete;
  ~DelegateAnswer() {
    if (!answered_.test_and_set()) task_->cancel();
  }

  template <class... Parameters, class... Arguments>
  void give(void (CurlTask::*member)(Parameters...), Arguments... arguments) {
    if (answered_.test_and_set()) return;
    engine_.post([task = task_, member, ... arguments = std::move(arguments)]() mutable {
      ((*task).*member)(std::move(arguments)...);
    });
  }

 private:
  const std::shared_ptr<CurlTask> task_;
  Engine& engine_;
  std::atomic_flag answered_;
};

}  // namespace

CurlTask::CurlTask(TaskSetup setup, URLRequest request)
    : originalRequest_(std::move(request)),
      engine_(setup.session->core()->engine()),
      refusal_(setup.refusal ? std::make_unique<const URLError>(*std::move(setup.refusal))
                             : nullptr),
      session_(std::move(setup.session)),
      delegate_(setup.delegate) {}

CurlTask::~CurlTask() {
  if (session_) session_->retire(*this);
}

URLRequest CurlTask::currentRequest() const {
  const MutexLock lock(mutex_);
  return redirectedRequest_ ? *redirectedRequest_ : originalRequest_;
}

std::shared_ptr<const HTTPURLResponse> CurlTask::response() const {
  const MutexLock lock(mutex_);
  return response_;
}

std::optional<Error> CurlTask::error() const {
  const MutexLock lock(mutex_);
  return error_;
}

// The state is changed here and acted upon on the loop, which looks at the state as it is then:
// however the two are interleaved between threads, the last change is the one that holds.
void CurlTask::resume() {
  auto expected = State::suspended;
  if (state_.compare_exchange_strong(expected, State::running)) postReconcile();
}

void CurlTask::suspend() {
  if (engine_.isAbandoned()) return;
  auto expected = State::running;
  if (state_.compare_exchange_strong(expected, State::suspended)) postReconcile();
}

void CurlTask::cancel() {
  auto state = state_.load();
  while (state == State::running || state == State::suspended) {
    if (state_.compare_exchange_weak(state, State::canceling)) {
      // In a child of fork() a task that was under way is the parent's.
      if (!engine_.isAbandoned() || state == State::suspended) postReconcile();
      return;
    }
  }
}

void CurlTask::post(void (CurlTask::*action)()) {
  engine_.post([self = shared_from_this(), action] { (*self.*action)(); });
}

// One on its way is enough, and all there may be: a thread that suspends and resumes without end
// would fill the loop's inbox faster than that is emptied.
void CurlTask::postReconcile() {
  if (engine_.isAbandoned()) {
    return Engine::shared().post([self = shared_from_this()] { self->endInChild(); });
  }
  if (reconcilePosted_.exchange(true)) return;
  try {
    post(&CurlTask::reconcile);
  } catch (...) {
    reconcilePosted_ = false;
    throw;
  }
}

// A session of the process that this one was forked from has no connections, no loop and no time.
void CurlTask::endInChild() noexcept {
  if (finished_) return;
  static_cast<void>(transfer_.release());  // what it holds of libcurl is not to be touched
  finish(URLError(URLError::cancelled, "The session is the parent process's.",
                  originalRequest_.url().redacted()));
}

void CurlTask::reconcile() {
  reconcilePosted_ = false;
  if (finished_) return;
  switch (state_) {
    case State::canceling:
      finish(std::nullopt);
      break;
    case State::suspended:
      if (transfer_) transfer_->setSuspended(true);
      break;
    case State::running:
      if (transfer_) {
        transfer_->setSuspended(false);
      } else {
        begin();
      }
      break;
    case State::completed:
      break;
  }
}

void CurlTask::begin() noexcept {
  try {
    if (refusal_) throw *refusal_;
    auto first = firstRequest();
    transfer_ = std::make_unique<Transfer>(shared_from_this(), session_->core());
    transfer_->begin(std::move(first));
  } catch (const URLError& failure) {
    finish(failure);
  } catch (const std::exception& failure) {
    finish(URLError(URLError::unknown, failure.what(), originalRequest_.url().redacted()));
  }
}

// What is still on its way is not wanted by then.
void CurlTask::giveUp() {
  if (!finished_) finish(std::nullopt);
}

void CurlTask::continueReading() {
  if (transfer_) transfer_->roomMade();
}

void CurlTask::redirectAnswered(std::optional<URLRequest> request) {
  if (transfer_) transfer_->redirectAnswered(std::move(request));
}

void CurlTask::challengeAnswered(URLSessionAuthChallengeDisposition disposition,
                                 std::optional<URLCredential> credential) {
  if (transfer_) transfer_->challengeAnswered(disposition, std::move(credential));
}

std::optional<URLRequest> CurlTask::requestInstead(const HTTPURLResponse&) { return std::nullopt; }

void CurlTask::setCurrentRequest(URLRequest request) {
  auto present = std::make_unique<const URLRequest>(std::move(request));
  const MutexLock lock(mutex_);
  redirectedRequest_.swap(present);
}

void CurlTask::setResponse(std::shared_ptr<const HTTPURLResponse> response) {
  const MutexLock lock(mutex_);
  response_ = std::move(response);
}

void CurlTask::countReceived(std::size_t bytes) noexcept {
  bytesReceived_.fetch_add(static_cast<std::int64_t>(bytes), std::memory_order_relaxed);
}

void CurlTask::addData(const std::uint8_t* bytes, std::size_t size, std::int64_t expected) {
  // Room for all that is announced saves the receiver of the first bytes from copying when it adds
  // the others to them; a length is only a claim, so beyond this much the storage grows with what
  // really comes.
  constexpr std::int64_t mostReserved = 4 * 1024 * 1024;
  constexpr std::int64_t fullBatch = Mailbox::capacity + 64 * 1024;  // with what makes it full
  Data& data = mailbox_.outgoing().data;
  if (data.empty() && expected > static_cast<std::int64_t>(size)) {
    const auto most = std::exchange(bodyBegun_, true) ? fullBatch : mostReserved;
    data.reserve(static_cast<std::size_t>(std::min(expected, most)));
  }
  data.append(bytes, size);
  planDelivery();
}

void CurlTask::addData(const Data& bytes) {
  mailbox_.outgoing().data.append(bytes);
  planDelivery();
}

void CurlTask::askRedirect(std::shared_ptr<const HTTPURLResponse> response, URLRequest newRequest) {
  mailbox_.outgoing().redirect = std::make_unique<RedirectQuestion>(
      RedirectQuestion{std::move(response), std::move(newRequest)});
  planDelivery();
}

void CurlTask::askChallenge(URLAuthenticationChallenge challenge, bool ofConnection) {
  mailbox_.outgoing().challenge =
      std::make_unique<ChallengeQuestion>(ChallengeQuestion{std::move(challenge), ofConnection});
  planDelivery();
}

void CurlTask::tellWaiting() {
  mailbox_.outgoing().waiting = true;
  planDelivery();
}

void CurlTask::finish(std::optional<URLError> error) noexcept {
  finished_ = true;
  const auto self = shared_from_this();
  transfer_.reset();
  guarded("URL loading", [&] {
    auto& events = mailbox_.outgoing();
    events.error = std::move(error);
    events.completed = true;
    planDelivery();
  });
}

void CurlTask::planDelivery() {
  if (deliveryPlanned_) return;
  engine_.deliverLater(shared_from_this());
  deliveryPlanned_ = true;
}

bool CurlTask::flush() noexcept {
  deliveryPlanned_ = false;
  bool needed = false;
  guarded("URL loading", [&] {
    if (transfer_) transfer_->handingOver(heldData());
    needed = mailbox_.flush();
  });
  return needed;
}

// While an operation has to be added the last event is still to come, and with it the session is
// held.
const std::shared_ptr<OperationQueue>& CurlTask::queue() const noexcept {
  return session_->queue();
}

URLSession& CurlTask::session() noexcept { return *session_; }

void CurlTask::deliver() noexcept {
  auto events = mailbox_.take();
  const std::size_t bytes = events->data.size();
  const bool last = events->completed;
  const auto process = forkCount();
  deliver(*events);
  if (process != forkCount()) return;  // the delegate forked: the rest is the parent's
  events.reset();
  if (last) {
    delegate_ = nullptr;
    if (const auto session = std::exchange(session_, nullptr)) session->retire(*this);
    return;
  }
  const auto next = mailbox_.delivered(bytes);
  guarded("URL loading", [&] {
    if (next.room) post(&CurlTask::continueReading);
    // An operation holds the task, so the queue may outlive all other owners.
    if (next.more) queue()->addOperation([self = shared_from_this()] { self->deliver(); });
  });
}

void CurlTask::deliver(TaskEvents& events) noexcept {
  const auto process = forkCount();
  if (events.waiting) {
    tell("taskIsWaitingForConnectivity", &URLSessionDelegate::taskIsWaitingForConnectivity, face());
  }
  if (events.challenge) askDelegate(*events.challenge);
  if (events.redirect) askDelegate(*events.redirect);
  if (!events.data.empty() && !failure_) {
    attempt([&] { takeBody(std::move(events.data)); });
    if (failure_) guarded("URL loading", [&] { post(&CurlTask::giveUp); });
  }
  if (!events.completed || process != forkCount()) return;
  if (!failure_) failure_ = std::move(events.error);
  if (!failure_) attempt([&] { completeBody(); });
  settle();
  settled();
  tell("didComplete", &URLSessionDelegate::didComplete, face(), failure_ ? error() : std::nullopt);
}

template <class Action>
void CurlTask::attempt(Action&& action) noexcept {
  guarded("URL loading", [&] {
    try {
      action();
    } catch (const URLError& failure) {
      failure_ = failure;
    } catch (const std::exception& failure) {
      failure_.emplace(URLError::unknown, failure.what(), currentRequest().url().redacted());
    }
  });
}

void CurlTask::askDelegate(RedirectQuestion& question) noexcept {
  guarded("URL loading", [&] {
    auto answer = std::make_shared<DelegateAnswer>(shared_from_this(), engine_);
    tell("willPerformHTTPRedirection", &URLSessionDelegate::willPerformHTTPRedirection, face(),
         question.response, std::move(question.newRequest),
         [answer](std::optional<URLRequest> request) {
           answer->give(&CurlTask::redirectAnswered, std::move(request));
         });
  });
}

void CurlTask::askDelegate(ChallengeQuestion& question) noexcept {
  guarded("URL loading", [&] {
    if (!delegate_) return;
    auto answer = std::make_shared<DelegateAnswer>(shared_from_this(), engine_);
    const URLChallengeHandler handler = [answer](URLSessionAuthChallengeDisposition disposition,
                                                 std::optional<URLCredential> credential) {
      answer->give(&CurlTask::challengeAnswered, disposition, std::move(credential));
    };
    if (question.ofConnection) {
      guarded("didReceiveChallenge",
              [&] { delegate_->didReceiveChallenge(session(), question.challenge, handler); });
    } else {
      tell("didReceiveTaskChallenge", &URLSessionDelegate::didReceiveTaskChallenge, face(),
           question.challenge, handler);
    }
  });
}

// The error is there before the task is seen to be over. Once cancel() has been accepted, the
// outcome is that, even where the last byte came first.
void CurlTask::settle() noexcept {
  auto state = state_.load();
  do {
    guarded("URL loading", [&] {
      if (state == State::canceling) {
        failure_ = URLError(URLError::cancelled, {}, currentRequest().url().redacted());
      }
      if (failure_) {
        const MutexLock lock(mutex_);
        error_.emplace(*failure_);
      }
    });
  } while (!state_.compare_exchange_weak(state, State::completed));
}

}  // namespace tarn::detail

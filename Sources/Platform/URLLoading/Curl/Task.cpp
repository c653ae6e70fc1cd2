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

CurlTask::UnderWay::UnderWay(TaskSetup setup)
    : session(std::move(setup.session)),
      delegate(setup.delegate),
      refusal(std::move(setup.refusal)) {}

CurlTask::CurlTask(TaskSetup setup, URLRequest request)
    : originalRequest_(std::move(request)),
      engine_(setup.session->core()->engine()),
      underWay_(std::make_unique<UnderWay>(std::move(setup))) {}

CurlTask::~CurlTask() {
  if (underWay_) underWay_->session->retire(*this);
}

std::shared_ptr<const HTTPURLResponse> CurlTask::response() const noexcept {
  return hasResponse_ ? response_ : nullptr;
}

std::optional<Error> CurlTask::error() const noexcept {
  return state_ == State::completed && error_ ? std::optional(*error_) : std::nullopt;
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
  // What it holds of libcurl is not to be touched.
  static_cast<void>(underWay_->transfer.release());
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
      if (auto* const present = transfer()) present->setSuspended(true);
      break;
    case State::running:
      if (auto* const present = transfer()) {
        present->setSuspended(false);
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
    if (underWay_->refusal) throw *underWay_->refusal;
    auto first = firstRequest();
    underWay_->transfer =
        std::make_unique<Transfer>(shared_from_this(), underWay_->session->core());
    underWay_->transfer->begin(std::move(first));
  } catch (const URLError& failure) {
    finish(failure);
  } catch (const std::exception& failure) {
    finish(URLError(URLError::unknown, failure.what(), originalRequest_.url().redacted()));
  }
}

// Null before the first resume() and after the end.
Transfer* CurlTask::transfer() const noexcept {
  return finished_ ? nullptr : underWay_->transfer.get();
}

// What is still on its way is not wanted by then.
void CurlTask::giveUp() {
  if (!finished_) finish(std::nullopt);
}

void CurlTask::continueReading() {
  if (auto* const present = transfer()) present->roomMade();
}

void CurlTask::redirectAnswered(std::optional<URLRequest> request) {
  if (auto* const present = transfer()) present->redirectAnswered(std::move(request));
}

void CurlTask::challengeAnswered(URLSessionAuthChallengeDisposition disposition,
                                 std::optional<URLCredential> credential) {
  if (auto* const present = transfer()) {
    present->challengeAnswered(disposition, std::move(credential));
  }
}

std::optional<URLRequest> CurlTask::requestInstead(const HTTPURLResponse&) { return std::nullopt; }

const URLRequest& CurlTask::setCurrentRequest(URLRequest request) {
  currentRequest_ = &laterRequests_.emplace_front(std::move(request));
  return *currentRequest_;
}

void CurlTask::setResponse(std::shared_ptr<const HTTPURLResponse> response) noexcept {
  response_ = std::move(response);
  hasResponse_ = true;
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
  Data& data = underWay_->mailbox.outgoing().data;
  if (data.empty() && expected > static_cast<std::int64_t>(size)) {
    const auto most = std::exchange(underWay_->bodyBegun, true) ? fullBatch : mostReserved;
    data.reserve(static_cast<std::size_t>(std::min(expected, most)));
  }
  data.append(bytes, size);
  planDelivery();
}

void CurlTask::addData(const Data& bytes) {
  underWay_->mailbox.outgoing().data.append(bytes);
  planDelivery();
}

void CurlTask::askRedirect(std::shared_ptr<const HTTPURLResponse> response, URLRequest newRequest) {
  underWay_->mailbox.outgoing().redirect = std::make_unique<RedirectQuestion>(
      RedirectQuestion{std::move(response), std::move(newRequest)});
  planDelivery();
}

void CurlTask::askChallenge(URLAuthenticationChallenge challenge, bool ofConnection) {
  underWay_->mailbox.outgoing().challenge =
      std::make_unique<ChallengeQuestion>(ChallengeQuestion{std::move(challenge), ofConnection});
  planDelivery();
}

void CurlTask::tellWaiting() {
  underWay_->mailbox.outgoing().waiting = true;
  planDelivery();
}

void CurlTask::finish(std::optional<URLError> error) noexcept {
  finished_ = true;
  const auto self = shared_from_this();
  underWay_->transfer.reset();
  guarded("URL loading", [&] {
    auto& events = underWay_->mailbox.outgoing();
    events.error = std::move(error);
    events.completed = true;
    planDelivery();
  });
}

void CurlTask::planDelivery() {
  if (underWay_->deliveryPlanned) return;
  engine_.deliverLater(shared_from_this());
  underWay_->deliveryPlanned = true;
}

bool CurlTask::flush() noexcept {
  underWay_->deliveryPlanned = false;
  bool needed = false;
  guarded("URL loading", [&] {
    if (auto* const present = transfer()) present->handingOver(heldData());
    needed = underWay_->mailbox.flush();
  });
  return needed;
}

// While an operation has to be added the last event is still to come.
const std::shared_ptr<OperationQueue>& CurlTask::queue() const noexcept {
  return underWay_->session->queue();
}

URLSession& CurlTask::session() noexcept { return *underWay_->session; }

void CurlTask::deliver() noexcept {
  auto events = underWay_->mailbox.take();
  const std::size_t bytes = events->data.size();
  const bool last = events->completed;
  const ProcessMark process;
  deliver(*events);
  if (!process.isCurrent()) return;
  events.reset();
  if (last) {
    underWay_->session->retire(*this);
    underWay_.reset();
    return;
  }
  const auto next = underWay_->mailbox.delivered(bytes);
  guarded("URL loading", [&] {
    if (next.room) post(&CurlTask::continueReading);
    // An operation holds the task, so the queue may outlive all other owners.
    if (next.more) queue()->addOperation([self = shared_from_this()] { self->deliver(); });
  });
}

// Where the delegate forks, the rest is the parent's, and another thread of the child may end the
// task.
void CurlTask::deliver(TaskEvents& events) noexcept {
  auto& failure = underWay_->failure;
  const ProcessMark process;
  if (events.waiting) {
    tell("taskIsWaitingForConnectivity", &URLSessionDelegate::taskIsWaitingForConnectivity, face());
  }
  if (events.challenge && process.isCurrent()) askDelegate(*events.challenge);
  if (events.redirect && process.isCurrent()) askDelegate(*events.redirect);
  if (!events.data.empty() && process.isCurrent() && !failure) {
    attempt([&] { takeBody(std::move(events.data)); });
    if (process.isCurrent() && failure) guarded("URL loading", [&] { post(&CurlTask::giveUp); });
  }
  if (!events.completed || !process.isCurrent()) return;
  if (!failure) failure = std::move(events.error);
  if (!failure) attempt([&] { completeBody(); });
  if (!process.isCurrent()) return;
  settle();
  settled();
  if (!process.isCurrent()) return;
  tell("didComplete", &URLSessionDelegate::didComplete, face(), error());
}

template <class Action>
void CurlTask::attempt(Action&& action) noexcept {
  guarded("URL loading", [&] {
    try {
      action();
    } catch (const URLError& failure) {
      underWay_->failure = failure;
    } catch (const std::exception& failure) {
      underWay_->failure.emplace(URLError::unknown, failure.what(),
                                 currentRequest().url().redacted());
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
    if (!underWay_->delegate) return;
    auto answer = std::make_shared<DelegateAnswer>(shared_from_this(), engine_);
    const URLChallengeHandler handler = [answer](URLSessionAuthChallengeDisposition disposition,
                                                 std::optional<URLCredential> credential) {
      answer->give(&CurlTask::challengeAnswered, disposition, std::move(credential));
    };
    if (question.ofConnection) {
      guarded("didReceiveChallenge", [&] {
        underWay_->delegate->didReceiveChallenge(session(), question.challenge, handler);
      });
    } else {
      tell("didReceiveTaskChallenge", &URLSessionDelegate::didReceiveTaskChallenge, face(),
           question.challenge, handler);
    }
  });
}

// The error is there before the task is seen to be over. Once cancel() has been accepted, the
// outcome is that, even where the last byte came first.
void CurlTask::settle() noexcept {
  auto& failure = underWay_->failure;
  auto state = state_.load();
  do {
    guarded("URL loading", [&] {
      if (state == State::canceling) {
        failure = URLError(URLError::cancelled, {}, currentRequest().url().redacted());
      }
      if (failure) error_ = std::make_unique<const Error>(*failure);
    });
  } while (!state_.compare_exchange_weak(state, State::completed));
}

}  // namespace tarn::detail

#include <Platform/URLLoading/Curl/Mailbox.hpp>

#include <utility>

namespace tarn::detail {

void TaskEvents::add(TaskEvents&& later) {
  waiting |= later.waiting;
  if (later.challenge) challenge = std::move(later.challenge);
  if (later.redirect) redirect = std::move(later.redirect);
  if (data.empty()) {
    data = std::move(later.data);
  } else {
    data.append(later.data);
  }
  completed = later.completed;
  error = std::move(later.error);
}

TaskEvents& Mailbox::outgoing() { return outgoing_ ? *outgoing_ : outgoing_.emplace(); }

const Data& Mailbox::heldData() const noexcept {
  static const Data none;
  return outgoing_ ? outgoing_->data : none;
}

bool Mailbox::isFull() {
  // Others can only make it less.
  if (undelivered_ + heldData().size() <= capacity) return false;
  const MutexLock lock(mutex_);
  loopWaits_ = undelivered_ + heldData().size() > capacity;
  return loopWaits_;
}

bool Mailbox::flush() {
  if (!outgoing_) return false;
  const MutexLock lock(mutex_);
  undelivered_ += outgoing_->data.size();
  if (inbox_) {
    inbox_->add(std::move(*outgoing_));
  } else {
    inbox_ = std::move(outgoing_);
  }
  outgoing_.reset();
  return !std::exchange(*scheduled_, true);
}

std::optional<TaskEvents> Mailbox::take() {
  const MutexLock lock(mutex_);
  return std::exchange(inbox_, std::nullopt);
}

Mailbox::Next Mailbox::delivered(std::size_t bytes) {
  const MutexLock lock(mutex_);
  undelivered_ -= bytes;
  *scheduled_ = inbox_.has_value();
  const bool room = undelivered_ <= capacity / 2 && std::exchange(loopWaits_, false);
  return {*scheduled_, room};
}

}  // namespace tarn::detail

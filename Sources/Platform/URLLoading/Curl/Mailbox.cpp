#include <Platform/URLLoading/Curl/Mailbox.hpp>

#include <utility>

namespace tarn::detail {

bool Mailbox::isFull() {
  // Others can only make it less.
  if (undelivered_ + outgoing_.data.size() <= capacity) return false;
  const MutexLock lock(mutex_);
  loopWaits_ = undelivered_ + outgoing_.data.size() > capacity;
  return loopWaits_;
}

bool Mailbox::flush() {
  if (outgoing_.empty()) return false;
  const MutexLock lock(mutex_);
  undelivered_ += outgoing_.data.size();
  inbox_.waiting |= outgoing_.waiting;
  if (outgoing_.challenge) inbox_.challenge = std::move(outgoing_.challenge);
  if (outgoing_.redirect) inbox_.redirect = std::move(outgoing_.redirect);
  if (inbox_.data.empty()) {
    inbox_.data = std::move(outgoing_.data);
  } else {
    inbox_.data.append(outgoing_.data);
  }
  inbox_.completed = outgoing_.completed;
  inbox_.error = std::move(outgoing_.error);
  outgoing_ = TaskEvents();
  return !std::exchange(*scheduled_, true);
}

TaskEvents Mailbox::take() {
  const MutexLock lock(mutex_);
  return std::exchange(inbox_, TaskEvents());
}

Mailbox::Next Mailbox::delivered(std::size_t bytes) {
  const MutexLock lock(mutex_);
  undelivered_ -= bytes;
  *scheduled_ = !inbox_.empty();
  const bool room = undelivered_ <= capacity / 2 && std::exchange(loopWaits_, false);
  return {*scheduled_, room};
}

}  // namespace tarn::detail

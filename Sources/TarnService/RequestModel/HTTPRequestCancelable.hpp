#pragma once

#include <Platform/Types/UUID.hpp>
#include <TarnService/RequestModel/HTTPRequestable.hpp>
#include <TarnService/Transport/TaskManager.hpp>

#include <concepts>
#include <memory>
#include <optional>
#include <ranges>

namespace tarn {

/// Makes a request one that can be cancelled, before or after its task exists.
///
/// The request has a `cancellationIdentifier`, a UUID that stays the same for the life of the value
/// and its copies: a stored field `tarn::UUID cancellationIdentifier;` does.
template <class Self>
struct HTTPRequestCancelable {
  /// Cancels the request wherever a send of it stands; no effect once it is answered. Callable from
  /// any thread.
  void cancel() const {
    static_assert(detail::property::cancellationIdentifierIs<Self, UUID>,
                  "A cancelable request has a `cancellationIdentifier`, a `tarn::UUID`.");
    taskManager().cancel(detail::property::cancellationIdentifier(static_cast<const Self&>(*this)));
  }
};

/// Cancels each request of a range, in its order.
template <std::ranges::input_range Requests>
void cancel(const Requests& requests) {
  for (const auto& request : requests) request.cancel();
}

namespace detail {

/// What keys a request in the registry of cancellations; nothing for a request that can't be
/// cancelled, for which every step below does nothing.
template <class R>
std::optional<UUID> cancellationIdentifier(const R& request) {
  if constexpr (std::derived_from<R, HTTPRequestCancelable<R>>) {
    return property::cancellationIdentifier(request);
  } else {
    return std::nullopt;
  }
}

void insertPendingToTaskManager(const std::optional<UUID>& identifier);
void insertTaskIntoTaskManager(std::shared_ptr<URLSessionTask> task,
                               const std::optional<UUID>& identifier);
/// Throws HTTPResponseError::taskCancelled where the request was cancelled before its task existed.
void checkPendingCancelable(const std::optional<UUID>& identifier);
/// Throws HTTPResponseError::taskCancelled where the request was cancelled at all.
void checkAllCanceledStates(const std::optional<UUID>& identifier);
void removeFromTaskManager(const std::optional<UUID>& identifier);

}  // namespace detail
}  // namespace tarn

#pragma once

#include <Platform/Dispatch/DispatchQueue.hpp>

#include <optional>

namespace tarn {

/// Runs `work` on the queue, later and on another call stack; without a queue on
/// DispatchQueue::global(), where several items may run at once.
void async(const std::optional<DispatchQueue>& queue, Work work);

}  // namespace tarn

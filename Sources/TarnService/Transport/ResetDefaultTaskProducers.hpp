#pragma once

namespace tarn {

/// Replaces the sessions of the shared producers; their running requests end as cancelled.
void resetDefaultTaskProducers();

}  // namespace tarn

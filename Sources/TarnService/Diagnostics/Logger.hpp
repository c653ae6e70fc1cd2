#pragma once

#include <TarnLogger/Logger.hpp>

namespace tarn {

/// The library's own logger, subsystem "TarnService". Lives as long as the process.
const Logger& logger();

}  // namespace tarn

#pragma once

#include <Platform/JSON/JSONCoding.hpp>

#include <chrono>

namespace tarn::detail {

constexpr JSONDate referenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);

}  // namespace tarn::detail

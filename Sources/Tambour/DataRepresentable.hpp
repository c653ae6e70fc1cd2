#pragma once

#include <Platform/Types/Data.hpp>

#include <concepts>

namespace tarn {

/// A value that turns itself into bytes through `asData()`, which may throw. `Data` is one.
template <class T>
concept DataRepresentable = requires(const T& value) {
  { value.asData() } -> std::convertible_to<Data>;
};

static_assert(DataRepresentable<Data>);

}  // namespace tarn

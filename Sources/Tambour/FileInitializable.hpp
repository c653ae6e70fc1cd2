#pragma once

#include <Platform/Types/URL.hpp>

#include <concepts>

namespace tarn {

/// A type that makes itself from a file: a static `fromFile(fileURL)`, which may throw.
template <class T>
concept FileInitializable = requires(const URL& fileURL) {
  { T::fromFile(fileURL) } -> std::same_as<T>;
};

}  // namespace tarn

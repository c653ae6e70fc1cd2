#pragma once

#include <Platform/Types/Data.hpp>
#include <Tambour/DataRepresentable.hpp>

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace tarn {

/// Any value that turns itself into bytes, kept as a copy of its own.
class AnyDataRepresentable {
 public:
  template <DataRepresentable T>
  requires(!std::same_as<T, AnyDataRepresentable> && std::copy_constructible<T>)
      AnyDataRepresentable(T value)  // NOLINT(google-explicit-constructor): a value is passed
                                     // wherever any is taken
      : asData_([value = std::move(value)]() -> Data { return value.asData(); }) {}

  /// What the value answers, each time anew. Throws what it throws.
  Data asData() const { return asData_(); }

 private:
  std::function<Data()> asData_;
};

}  // namespace tarn

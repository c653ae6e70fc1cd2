#pragma once

#include <Platform/Types/TypeName.hpp>

#include <string>
#include <string_view>

namespace tarn {

/// A type as a value, known by its unqualified name.
class TypeReference {
 public:
  template <class T>
  static TypeReference of() {
    return TypeReference(unqualifiedTypeName<T>());
  }

  std::string_view name() const noexcept { return name_; }
  std::string description() const { return std::string(name_); }
  friend bool operator==(const TypeReference&, const TypeReference&) = default;

 private:
  explicit TypeReference(std::string_view name) : name_(name) {}

  std::string_view name_;  // lives as long as the process
};

}  // namespace tarn

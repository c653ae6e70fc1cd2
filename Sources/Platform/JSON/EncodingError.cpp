#include <Platform/JSON/EncodingError.hpp>

#include <utility>

namespace tarn {

EncodingError::EncodingError(CodingPath path, std::string reason)
    : path_(std::move(path)), reason_(std::move(reason)) {}

EncodingError EncodingError::invalidValue(CodingPath path, std::string reason) {
  return {std::move(path), std::move(reason)};
}

std::string EncodingError::message() const { return detail::located(path_, reason_); }

}  // namespace tarn

#include <Platform/JSON/DecodingError.hpp>
#include <Platform/JSON/Detail/QuotedText.hpp>

#include <utility>

namespace tarn {

DecodingError::DecodingError(Case kind, CodingPath path, std::string key, std::string reason)
    : case_(kind), path_(std::move(path)), key_(std::move(key)), reason_(std::move(reason)) {}

DecodingError DecodingError::typeMismatch(CodingPath path, std::string reason) {
  return {Case::typeMismatch, std::move(path), {}, std::move(reason)};
}

DecodingError DecodingError::valueNotFound(CodingPath path, std::string reason) {
  return {Case::valueNotFound, std::move(path), {}, std::move(reason)};
}

DecodingError DecodingError::keyNotFound(std::string key, CodingPath path) {
  std::string reason = "the key " + detail::quoted(key) + " is missing";
  return {Case::keyNotFound, std::move(path), std::move(key), std::move(reason)};
}

DecodingError DecodingError::dataCorrupted(CodingPath path, std::string reason) {
  return {Case::dataCorrupted, std::move(path), {}, std::move(reason)};
}

std::string DecodingError::message() const { return detail::located(path_, reason_); }

std::int64_t DecodingError::code() const noexcept { return static_cast<std::int64_t>(case_); }

}  // namespace tarn

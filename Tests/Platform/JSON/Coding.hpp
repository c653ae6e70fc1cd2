#pragma once

#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tarn {

template <class T>
T decoded(std::string_view json) {
  return JSONDecoder().decode<T>(json);
}

template <class T>
std::string encoded(const T& value) {
  return std::string(JSONEncoder().encode(value).view());
}

/// The error that decoding ends in; nothing where it succeeds.
template <class T>
std::optional<DecodingError> decodingError(std::string_view json,
                                           const JSONDecoder& decoder = JSONDecoder()) {
  try {
    decoder.decode<T>(json);
    return std::nullopt;
  } catch (const DecodingError& error) {
    return error;
  }
}

/// Case and message of the error: "keyNotFound: the key "a" is missing".
template <class T>
std::string decodingFailure(std::string_view json, const JSONDecoder& decoder = JSONDecoder()) {
  constexpr const char* cases[] = {"typeMismatch", "valueNotFound", "keyNotFound", "dataCorrupted"};
  const auto error = decodingError<T>(json, decoder);
  return error ? std::string(cases[error->code()]) + ": " + error->message() : "decoded";
}

template <class T>
std::string encodingFailure(const T& value) {
  try {
    return "encoded " + encoded(value);
  } catch (const EncodingError& error) {
    return error.message();
  }
}

}  // namespace tarn

#pragma once

#include <string>
#include <utility>

namespace tarn {

/// An HTTP method: one of the named ones or any token (RFC 9110, 9).
struct HTTPMethod {
  std::string rawValue;

  explicit HTTPMethod(std::string rawValue) : rawValue(std::move(rawValue)) {}
  friend bool operator==(const HTTPMethod&, const HTTPMethod&) = default;

  static const HTTPMethod get;
  static const HTTPMethod post;
  static const HTTPMethod put;
  static const HTTPMethod patch;
  static const HTTPMethod delete_;
};

inline const HTTPMethod HTTPMethod::get{"GET"};
inline const HTTPMethod HTTPMethod::post{"POST"};
inline const HTTPMethod HTTPMethod::put{"PUT"};
inline const HTTPMethod HTTPMethod::patch{"PATCH"};
inline const HTTPMethod HTTPMethod::delete_{"DELETE"};

}  // namespace tarn

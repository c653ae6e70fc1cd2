#pragma once

#include <Platform/Types/URL.hpp>
#include <Tambour/DataRepresentable.hpp>

#include <concepts>
#include <string>

namespace tarn {

/// A value that lies in a file: `fileURL()` says where, `asData()` answers its bytes and may throw.
template <class T>
concept FileRepresentable = DataRepresentable<T> && requires(const T& value) {
  { value.fileURL() } -> std::convertible_to<URL>;
};

/// The MIME type of a file by the extension of its name, "application/octet-stream" where none is
/// known; the file need not exist. Callable from any thread.
std::string mimeType(const URL& fileURL);

/// That of the file that the value lies in.
template <FileRepresentable T>
std::string mimeType(const T& value) {
  return mimeType(URL(value.fileURL()));
}

}  // namespace tarn

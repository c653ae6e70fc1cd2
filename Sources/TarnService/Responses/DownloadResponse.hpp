#pragma once

#include <Tambour/FileInitializable.hpp>
#include <TarnService/Responses/HTTPResponsable.hpp>

#include <concepts>
#include <memory>
#include <optional>
#include <utility>

namespace tarn {

/// What a downloaded file can become: its bytes as Data, a FileInitializable such as File, or a
/// type whose static `fromFile(fileURL)` answers nothing where the file's contents are no value of
/// it. What `fromFile` throws is the failure.
template <class T>
concept DownloadBody = std::same_as<T, Data> || FileInitializable<T> || requires(const URL& file) {
  { T::fromFile(file) } -> std::same_as<std::optional<T>>;
};

template <DownloadBody Body>
using DownloadResult = HTTPResult<Body>;

namespace detail {

/// Judges an answer and calls `read(location, body)` where there is a file to read; `read` answers
/// whether there is a value in the file. Why the answer is a failure, or nothing.
std::optional<Error> readAnswer(const std::optional<URL>& location, const URLResponse* response,
                                const std::optional<Error>& error, TypeReference type,
                                bool (*read)(const URL& location, void* body), void* body);
/// The file's bytes, or nothing where it is empty.
std::optional<Data> readBytes(const URL& location);

}  // namespace detail

/// The answer to a request as a value made from the file that its body was written to.
///
/// Success is an answer with a status from 200 to 206, whatever the request accepts. Its body is
/// absent where the status is 204, and for Data where the file is empty too. A file that holds no
/// value of the body's type is a failure, HTTPResponseError::malformedData; what is thrown while it
/// is read, any other answer and every error are failures too. All of them keep the metadata they
/// came with. The record removes no file.
template <class Body>
struct DownloadResponse : HTTPResponseRecord<DownloadResponse<Body>, HTTPResult<Body>> {
  using Record = HTTPResponseRecord<DownloadResponse<Body>, HTTPResult<Body>>;
  using Record::Record;

  /// From what a finished task leaves; never throws but for want of memory. Reads the file at
  /// `url`.
  DownloadResponse(std::optional<Data> data, std::optional<URL> url,
                   std::shared_ptr<const URLResponse> response, std::optional<Error> error)
      : Record(response, makeResult(url, response.get(), error), std::move(data)) {}

 private:
  static HTTPResult<Body> makeResult(const std::optional<URL>& url, const URLResponse* response,
                                     const std::optional<Error>& error) {
    // Not beside the members: a class that is no class would bring errors of its own.
    static_assert(DownloadBody<Body>,
                  "No downloaded file becomes the answer type of this request: give it a `static T "
                  "fromFile(const tarn::URL& fileURL)`, or take `tarn::File` or `tarn::Data`.");
    std::optional<Body> body;
    if constexpr (DownloadBody<Body>) {
      const auto failure =
          detail::readAnswer(url, response, error, TypeReference::of<Body>(), &read, &body);
      if (failure) return HTTPResult<Body>::failure(*failure);
    }
    return HTTPResult<Body>::success(std::move(body));
  }

  static bool read(const URL& location, void* result) {
    auto& body = *static_cast<std::optional<Body>*>(result);
    if constexpr (std::same_as<Body, Data>) {
      body = detail::readBytes(location);
      return true;
    } else {
      body = Body::fromFile(location);
      return body.has_value();
    }
  }
};

}  // namespace tarn

#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <TarnService/Responses/HTTPResultable.hpp>
#include <TarnService/Responses/HTTPStatus.hpp>
#include <TarnService/Responses/TypeReference.hpp>

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tarn {

/// What a record tells of an answer beside its result and bytes.
struct HTTPResponseMetadata {
  /// Absent where the answer was no HTTP answer.
  std::optional<HTTPHeaderFields> headers = std::nullopt;
  /// `unknown` where there was no HTTP answer or its code is not in the table.
  HTTPStatus status = HTTPStatus::unknown;
  /// Bytes, or -1 where the answer did not say.
  std::optional<std::int64_t> expectedContentLength = std::nullopt;
  std::optional<std::string> suggestedFilename = std::nullopt;
  std::optional<std::string> mimeType = std::nullopt;
  std::optional<std::string> textEncodingName = std::nullopt;
  /// Where the answer came from, after redirects.
  std::optional<URL> url = std::nullopt;
  /// The answer's head itself, shared.
  std::shared_ptr<const URLResponse> urlResponse = nullptr;

  HTTPResponseMetadata() = default;
  /// Copied from an answer; all but the status absent where there is none.
  explicit HTTPResponseMetadata(std::shared_ptr<const URLResponse> response);
};

namespace detail {

/// The answer as an HTTP answer; null where it is none.
const HTTPURLResponse* httpResponse(const URLResponse* response) noexcept;
std::string debugStatusAndHeaders(TypeReference type, const HTTPResponseMetadata& metadata);
/// Why every record is a failure, whatever the body: the error it was given, or a status outside of
/// 200 to 206. `http` is null where the answer was no HTTP answer, which each record judges itself.
std::optional<Error> failureOf(const HTTPURLResponse* http, const std::optional<Error>& error);

}  // namespace detail

/// The fields of every response record, and what it can tell of them.
///
/// `Self` is the record that derives from this one. A value; copies share the bytes, the answer's
/// head and the error.
template <class Self, HTTPResultable ResultType>
struct HTTPResponseRecord : HTTPResponseMetadata {
  using Result = ResultType;

  Result result;
  /// The bytes of the body as received, after content decoding; a server's error body too.
  std::optional<Data> data;

  explicit HTTPResponseRecord(Result result, std::optional<Data> data = std::nullopt,
                              HTTPResponseMetadata metadata = {})
      : HTTPResponseMetadata(std::move(metadata)),
        result(std::move(result)),
        data(std::move(data)) {}

  /// The record's type, its status and one line for each header field.
  std::string debugStatusAndHeaders() const {
    return detail::debugStatusAndHeaders(TypeReference::of<Self>(), *this);
  }
  std::string debugDescription() const { return debugStatusAndHeaders(); }

 protected:
  /// With the metadata of an answer, made in its place.
  HTTPResponseRecord(std::shared_ptr<const URLResponse> response, Result result,
                     std::optional<Data> data)
      : HTTPResponseMetadata(std::move(response)),
        result(std::move(result)),
        data(std::move(data)) {}
};

/// What the send pipeline asks of a response record: the fields, a result, and that it can be made
/// from what a finished task leaves. The constructor should not throw: a problem belongs into the
/// result.
template <class T>
concept _HTTPResponsable =  // NOLINT(bugprone-reserved-identifier): the name is public, see
                            // naming.md
    HTTPResultable<typename T::Result> &&
    std::constructible_from<T, std::optional<Data>, std::optional<URL>,
                            std::shared_ptr<const URLResponse>, std::optional<Error>> &&
    requires(const T& response) {
  { response.result } -> std::convertible_to<typename T::Result>;
  { response.data } -> std::convertible_to<std::optional<Data>>;
  { response.headers } -> std::convertible_to<std::optional<HTTPHeaderFields>>;
  { response.status } -> std::convertible_to<HTTPStatus>;
  { response.expectedContentLength } -> std::convertible_to<std::optional<std::int64_t>>;
  { response.suggestedFilename } -> std::convertible_to<std::optional<std::string>>;
  { response.mimeType } -> std::convertible_to<std::optional<std::string>>;
  { response.textEncodingName } -> std::convertible_to<std::optional<std::string>>;
  { response.url } -> std::convertible_to<std::optional<URL>>;
  { response.urlResponse } -> std::convertible_to<std::shared_ptr<const URLResponse>>;
};

/// A response record: DataResponse, JSONResponse, or one's own that derives from
/// HTTPResponseRecord.
template <class T>
concept HTTPResponsable = _HTTPResponsable<T> && requires(const T& response) {
  { response.debugStatusAndHeaders() } -> std::convertible_to<std::string>;
};

}  // namespace tarn

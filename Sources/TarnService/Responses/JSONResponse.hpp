#pragma once

#include <Tambour/JSONDecodable.hpp>
#include <TarnService/Responses/HTTPResponsable.hpp>

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tarn {

template <JSONDecodable Body>
using JSONResult = HTTPResult<Body>;

namespace detail {

/// Judges an answer and calls `decode(bytes, body)` where there is something to decode. Why the
/// answer is a failure, or nothing.
std::optional<Error> decodeAnswer(const std::optional<Data>& data, const URLResponse* response,
                                  const std::optional<Error>& error, TypeReference type,
                                  void (*decode)(const Data& json, void* body), void* body);
/// What the debug description of a JSON record adds to the status and the headers.
std::string jsonDescription(const std::optional<Data>& data);

}  // namespace detail

/// The answer to a request as a value decoded from JSON with the decoder of its type.
///
/// Success is an answer with a status from 200 to 206, whatever the request accepts; its body is
/// absent where there are no bytes or the status is 204. Bytes that are no JSON of this type are a
/// failure, HTTPResponseError::jsonDecoding, or HTTPUnknownError::unableToParseJSON where a coding
/// of one's own throws something else than a DecodingError; both leave a debug line in the log. Any
/// other answer and every error is a failure too. All of them keep the bytes and the metadata they
/// came with.
template <class Body>
struct JSONResponse : HTTPResponseRecord<JSONResponse<Body>, HTTPResult<Body>> {
  using Record = HTTPResponseRecord<JSONResponse<Body>, HTTPResult<Body>>;
  using Record::Record;

  /// From what a finished task leaves; never throws but for want of memory. `url` is not used.
  JSONResponse(std::optional<Data> data, std::optional<URL> /*url*/,
               std::shared_ptr<const URLResponse> response, std::optional<Error> error)
      : Record(response, makeResult(data, response.get(), error), data) {}

  /// The record's type, its status, one line for each header field and, where the body is a JSON
  /// object, the object.
  std::string debugDescription() const {
    return this->debugStatusAndHeaders() + detail::jsonDescription(this->data);
  }

 private:
  static HTTPResult<Body> makeResult(const std::optional<Data>& data, const URLResponse* response,
                                     const std::optional<Error>& error) {
    // Not beside the members: a class that is no class would bring errors of its own.
    static_assert(JSONDecodable<Body>,
                  "No JSON is decoded into the answer type of this request: give it a `static T "
                  "decode(tarn::JSONReader&)`, specialise `tarn::JSONCoding`, or make it an "
                  "aggregate.");
    std::optional<Body> body;
    if constexpr (JSONDecodable<Body>) {
      const auto failure = detail::decodeAnswer(
          data, response, error, TypeReference::of<Body>(),
          [](const Data& json, void* result) {
            static_cast<std::optional<Body>*>(result)->emplace(
                decoderOf<Body>().template decode<Body>(json));
          },
          &body);
      if (failure) return HTTPResult<Body>::failure(*failure);
    }
    return HTTPResult<Body>::success(std::move(body));
  }
};

}  // namespace tarn

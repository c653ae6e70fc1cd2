#pragma once

#include <TarnService/Responses/HTTPResponsable.hpp>

#include <concepts>

namespace tarn {

/// A successful answer with a body that is certain to be there: what a future of a request
/// delivers.
template <HTTPResponsable Response, class BodyType>
struct HTTPResponse : HTTPResponseMetadata {
  using Body = BodyType;

  std::optional<Data> data;
  /// The record's `debugStatusAndHeaders`.
  std::string debugDescription;
  Body body;

  /// Takes the metadata from any record.
  HTTPResponse(const Response& response, Body body)
      : HTTPResponseMetadata(metadataOf(response)),
        data(response.data),
        debugDescription(response.debugStatusAndHeaders()),
        body(std::move(body)) {}

 private:
  // Field by field where a record does not derive from HTTPResponseMetadata.
  static HTTPResponseMetadata metadataOf(const Response& response) {
    if constexpr (std::derived_from<Response, HTTPResponseMetadata>) {
      return response;
    } else {
      HTTPResponseMetadata metadata;
      metadata.headers = response.headers;
      metadata.status = response.status;
      metadata.expectedContentLength = response.expectedContentLength;
      metadata.suggestedFilename = response.suggestedFilename;
      metadata.mimeType = response.mimeType;
      metadata.textEncodingName = response.textEncodingName;
      metadata.url = response.url;
      metadata.urlResponse = response.urlResponse;
      return metadata;
    }
  }
};

}  // namespace tarn

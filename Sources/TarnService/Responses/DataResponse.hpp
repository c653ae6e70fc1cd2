#pragma once

#include <TarnService/Responses/HTTPResponsable.hpp>

namespace tarn {

using DataResult = HTTPResult<Data>;

/// The answer to a request as raw bytes.
///
/// Success carries the bytes of an answer with a status from 200 to 206, whatever the request
/// accepts; any other answer and every error is a failure that keeps the bytes and the metadata it
/// came with.
struct DataResponse : HTTPResponseRecord<DataResponse, DataResult> {
  using HTTPResponseRecord::HTTPResponseRecord;

  /// From what a finished task leaves; never throws but for want of memory. `url` is not used.
  DataResponse(std::optional<Data> data, std::optional<URL> url,
               std::shared_ptr<const URLResponse> response, std::optional<Error> error);
};

}  // namespace tarn

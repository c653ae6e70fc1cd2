#include <Platform/Types/SourceLocation.hpp>
#include <TarnService/Responses/DataResponse.hpp>
#include <TarnService/Responses/HTTPUnknownError.hpp>

namespace tarn {
namespace {

DataResult judge(const std::optional<Data>& data, const URLResponse* response,
                 const std::optional<Error>& error) {
  const auto* http = detail::httpResponse(response);
  if (auto failure = detail::failureOf(http, error)) return DataResult::failure(*failure);
  if (!http) {
    return DataResult::failure(HTTPUnknownError::dataResponseFailedToConstruct(
        SourceLocation::in("init(data:url:response:error:)")));
  }
  return DataResult::success(data);
}

}  // namespace

DataResponse::DataResponse(std::optional<Data> body, std::optional<URL> /*url*/,
                           std::shared_ptr<const URLResponse> response, std::optional<Error> error)
    : HTTPResponseRecord(response, judge(body, response.get(), error), body) {}

static_assert(HTTPResponsable<DataResponse>);

}  // namespace tarn

#include <TarnService/Responses/HTTPStatus.hpp>

#include <array>
#include <cstddef>

namespace tarn {
namespace {

struct Row {
  HTTPStatus::Case status;
  std::string_view name;
};

// `unknown` last.
constexpr std::array<Row, 42> rows{{
    {HTTPStatus::continue_, "continue"},
    {HTTPStatus::switchingProtocols, "switchingProtocols"},
    {HTTPStatus::success, "success"},
    {HTTPStatus::created, "created"},
    {HTTPStatus::accepted, "accepted"},
    {HTTPStatus::nonAuthoritativeInfo, "nonAuthoritativeInfo"},
    {HTTPStatus::noContent, "noContent"},
    {HTTPStatus::resetContent, "resetContent"},
    {HTTPStatus::partialContent, "partialContent"},
    {HTTPStatus::multipleChoices, "multipleChoices"},
    {HTTPStatus::movedPermanently, "movedPermanently"},
    {HTTPStatus::found, "found"},
    {HTTPStatus::seeOther, "seeOther"},
    {HTTPStatus::notModified, "notModified"},
    {HTTPStatus::useProxy, "useProxy"},
    {HTTPStatus::unused, "unused"},
    {HTTPStatus::temporaryRedirect, "temporaryRedirect"},
    {HTTPStatus::badRequest, "badRequest"},
    {HTTPStatus::unauthorized, "unauthorized"},
    {HTTPStatus::paymentRequired, "paymentRequired"},
    {HTTPStatus::forbidden, "forbidden"},
    {HTTPStatus::notFound, "notFound"},
    {HTTPStatus::methodNotAllowed, "methodNotAllowed"},
    {HTTPStatus::notAcceptable, "notAcceptable"},
    {HTTPStatus::proxyAuthenticationRequired, "proxyAuthenticationRequired"},
    {HTTPStatus::requestTimeout, "requestTimeout"},
    {HTTPStatus::conflict, "conflict"},
    {HTTPStatus::gone, "gone"},
    {HTTPStatus::lengthRequired, "lengthRequired"},
    {HTTPStatus::preconditionFailed, "preconditionFailed"},
    {HTTPStatus::requestEntityTooLarge, "requestEntityTooLarge"},
    {HTTPStatus::requestURITooLong, "requestURITooLong"},
    {HTTPStatus::unsupportedMediaType, "unsupportedMediaType"},
    {HTTPStatus::requestedRangeNotSatisfiable, "requestedRangeNotSatisfiable"},
    {HTTPStatus::expectationFailed, "expectationFailed"},
    {HTTPStatus::internalServerError, "internalServerError"},
    {HTTPStatus::notImplemented, "notImplemented"},
    {HTTPStatus::badGateway, "badGateway"},
    {HTTPStatus::serviceUnavailable, "serviceUnavailable"},
    {HTTPStatus::gatewayTimeout, "gatewayTimeout"},
    {HTTPStatus::httpVersionNotSupported, "httpVersionNotSupported"},
    {HTTPStatus::unknown, "unknown"},
}};

// For each code of HTTP, the number of its row counted from 1, or 0.
constexpr auto rowNumbers = [] {
  std::array<std::uint8_t, 600> numbers{};
  for (std::size_t row = 0; rows[row].status != HTTPStatus::unknown; ++row) {
    numbers[static_cast<std::size_t>(rows[row].status)] = static_cast<std::uint8_t>(row + 1);
  }
  return numbers;
}();

const Row* find(std::int64_t code) noexcept {
  if (code == HTTPStatus::unknown) return &rows.back();
  if (code < 0 || code >= static_cast<std::int64_t>(rowNumbers.size())) return nullptr;
  const auto number = rowNumbers[static_cast<std::size_t>(code)];
  return number == 0 ? nullptr : &rows[number - 1u];
}

}  // namespace

std::optional<HTTPStatus> HTTPStatus::fromRawValue(std::int64_t rawValue) noexcept {
  const Row* row = find(rawValue);
  return row ? std::optional<HTTPStatus>(row->status) : std::nullopt;
}

HTTPStatus HTTPStatus::of(std::int64_t code) noexcept {
  return fromRawValue(code).value_or(unknown);
}

std::string_view HTTPStatus::description() const noexcept { return find(case_)->name; }

bool HTTPStatus::isAcceptableByDefault() const noexcept {
  return case_ >= success && case_ <= partialContent;
}

HTTPStatus status(const HTTPURLResponse& response) noexcept {
  return HTTPStatus::of(response.statusCode());
}

}  // namespace tarn

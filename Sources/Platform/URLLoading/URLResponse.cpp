#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/SuggestedFilename.hpp>
#include <Platform/URLLoading/URLResponse.hpp>

namespace tarn {

struct URLResponse::Type {
  std::optional<std::string> mimeType;
  std::optional<std::string> textEncodingName;
};

URLResponse::URLResponse(URL url, std::optional<std::string> mimeType,
                         std::int64_t expectedContentLength,
                         std::optional<std::string> textEncodingName)
    : url_(std::move(url)),
      expectedContentLength_(expectedContentLength),
      type_(std::make_unique<const Type>(Type{std::move(mimeType), std::move(textEncodingName)})) {}

URLResponse::URLResponse(URL url, std::int64_t expectedContentLength)
    : url_(std::move(url)), expectedContentLength_(expectedContentLength) {}

URLResponse::~URLResponse() = default;

std::optional<std::string> URLResponse::mimeType() const {
  return detail::lowercasedUnlessEmpty(declaredType());
}

std::string_view URLResponse::declaredType() const noexcept {
  if (!type_ || !type_->mimeType) return {};
  return detail::withoutParameters(*type_->mimeType);
}

std::optional<std::string> URLResponse::textEncodingName() const {
  if (!type_ || !type_->textEncodingName) return std::nullopt;
  return detail::lowercasedUnlessEmpty(*type_->textEncodingName);
}

std::string URLResponse::suggestedFilename() const {
  return detail::suggestedFilename(declaredFilename(), url_, declaredType());
}

}  // namespace tarn

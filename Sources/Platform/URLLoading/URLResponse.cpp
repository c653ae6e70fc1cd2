#include <Platform/URLLoading/Detail/SuggestedFilename.hpp>
#include <Platform/URLLoading/URLResponse.hpp>

namespace tarn {

URLResponse::URLResponse(URL url, std::optional<std::string> mimeType,
                         std::int64_t expectedContentLength,
                         std::optional<std::string> textEncodingName)
    : url_(std::move(url)),
      mimeType_(std::move(mimeType)),
      expectedContentLength_(expectedContentLength),
      textEncodingName_(std::move(textEncodingName)) {}

std::string URLResponse::suggestedFilename() const {
  return detail::suggestedFilename(declaredFilename(), url_, mimeType_);
}

}  // namespace tarn

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarn {
class URL;
}

namespace tarn::detail {

/// A name under which an answer can be saved: the declared one, else the last component of the
/// address, else its host, else "Unknown". Never empty, "." or ".."; without separators and control
/// characters; at most 255 bytes of valid UTF-8; with an extension that fits `mimeType` where it
/// had none.
std::string suggestedFilename(std::optional<std::string> declared, const URL& url,
                              const std::optional<std::string>& mimeType);

/// The usual extension of a media type, without the dot; empty where none is known.
std::string_view usualExtension(std::string_view mimeType) noexcept;

}  // namespace tarn::detail

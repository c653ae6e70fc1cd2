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
/// characters; at most 255 bytes of valid UTF-8; with an extension that fits `mimeType`, which may
/// be in any case or empty, where it had none.
std::string suggestedFilename(std::optional<std::string> declared, const URL& url,
                              std::string_view mimeType);

}  // namespace tarn::detail

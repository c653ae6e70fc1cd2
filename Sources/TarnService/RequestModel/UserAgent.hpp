#pragma once

#include <string>

namespace tarn {

/// The "User-Agent" of every request: the application's name, version, identifier and build as its
/// main bundle names them, the operating system's version, and the library's own. Computed once, on
/// first use; later changes of the bundle do not show.
const std::string& userAgent();

}  // namespace tarn

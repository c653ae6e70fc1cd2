#pragma once

#include <Platform/Trust/SecTrust.hpp>
#include <Platform/Types/URL.hpp>

#include <vector>

namespace tarn::detail {

/// Whether `trust` holds once the last usable one of these DER files has become its custom anchor,
/// beside the system's. What can't be used is passed over.
bool isTrustedWith(const std::vector<URL>& certificateFiles, SecTrust& trust);

}  // namespace tarn::detail

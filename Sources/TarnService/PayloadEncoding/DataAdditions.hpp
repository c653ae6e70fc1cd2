#pragma once

#include <Platform/Types/Data.hpp>
#include <TarnService/PayloadEncoding/GZip.hpp>

#include <cstddef>
#include <optional>

namespace tarn {

/// Whether the bytes begin with the gzip signature, 1F 8B.
bool isGzipped(const Data& data) noexcept;

/// The bytes as GZipArchiver compresses them. Throws GZipError.
Data gzipped(const Data& data, GZipCompression compression = GZipCompression::default_);

/// The bytes as GZipUnarchiver decompresses them, to at most `maximumSize` bytes where it is given.
/// Throws GZipError.
Data gunzipped(const Data& data, std::optional<std::size_t> maximumSize = std::nullopt);

}  // namespace tarn

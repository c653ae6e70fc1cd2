#pragma once

#include <Platform/Types/Data.hpp>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace tarn::detail {

/// The most that zlib takes at a time: it counts input and output in unsigned int.
inline constexpr std::size_t largestPiece = std::numeric_limits<unsigned>::max();

/// One gzip member of the bytes, fed to zlib in pieces of `pieceSize`, which does not show in the
/// result. Throws GZipError.
Data deflated(const Data& bytes, std::int32_t level, std::size_t pieceSize = largestPiece);

/// The content of the first gzip member; the same holds. Throws GZipError.
Data inflated(const Data& bytes, std::optional<std::size_t> maximumSize,
              std::size_t pieceSize = largestPiece);

/// Twice the size; ends the process where that is no size.
std::size_t doubled(std::size_t size);

}  // namespace tarn::detail

#include <TarnService/PayloadEncoding/DataAdditions.hpp>
#include <TarnService/PayloadEncoding/Detail/ZStream.hpp>
#include <TarnService/PayloadEncoding/GZip.hpp>

namespace tarn {

Data GZipArchiver::zip(GZipCompression with) const {
  if (uncompressedData.empty() || isGzipped(uncompressedData)) return uncompressedData;
  return detail::deflated(uncompressedData, with.rawValue);
}

Data GZipUnarchiver::unzip(std::optional<std::size_t> maximumSize) const {
  if (!isGzipped(compressedData)) return compressedData;
  return detail::inflated(compressedData, maximumSize);
}

}  // namespace tarn

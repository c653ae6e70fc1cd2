#include <TarnService/PayloadEncoding/DataAdditions.hpp>

namespace tarn {

bool isGzipped(const Data& data) noexcept { return data.view().starts_with("\x1F\x8B"); }

Data gzipped(const Data& data, GZipCompression compression) {
  return GZipArchiver(data).zip(compression);
}

Data gunzipped(const Data& data, std::optional<std::size_t> maximumSize) {
  return GZipUnarchiver(data).unzip(maximumSize);
}

}  // namespace tarn

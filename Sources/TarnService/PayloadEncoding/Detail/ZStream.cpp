#include <Platform/Types/FatalError.hpp>
#include <TarnService/PayloadEncoding/Detail/ZStream.hpp>
#include <TarnService/Responses/GZipError.hpp>

#include <zlib.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace tarn::detail {
namespace {

constexpr int gzipFormat = MAX_WBITS + 16;
constexpr int detectedFormat = MAX_WBITS + 32;
constexpr std::size_t zipStep = 12;

static_assert(sizeof(uLong) >= sizeof(std::size_t), "zlib's totals count every byte of a buffer");

/// zlib's state over all of the input and one growing output.
class ZStream {
 public:
  ZStream(const Data& input, std::size_t pieceSize)
      : input_(input.bytes()), rest_(input.size()), pieceSize_(std::min(pieceSize, largestPiece)) {}
  ~ZStream() {
    if (end_ != nullptr) end_(&stream_);
  }
  ZStream(const ZStream&) = delete;
  ZStream& operator=(const ZStream&) = delete;

  void startDeflating(std::int32_t level) {
    require(
        deflateInit2(&stream_, level, Z_DEFLATED, gzipFormat, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY));
    end_ = deflateEnd;
  }
  void startInflating() {
    require(inflateInit2(&stream_, detectedFormat));
    end_ = inflateEnd;
  }
  int end() { return std::exchange(end_, nullptr)(&stream_); }

  /// Lets `output` grow to `size` where it is full, and points zlib behind what it has written.
  void prepareOutput(std::size_t size) {
    if (isFull()) output.resize(size);
    stream_.next_out = output.data() + written();
    stream_.avail_out = static_cast<uInt>(std::min(output.size() - written(), largestPiece));
  }
  void prepareInput() {
    if (stream_.avail_in > 0 || rest_ == 0) return;
    const std::size_t piece = std::min(rest_, pieceSize_);
    stream_.next_in = const_cast<Bytef*>(input_);  // zlib only reads; its type predates const
    stream_.avail_in = static_cast<uInt>(piece);
    input_ += piece;
    rest_ -= piece;
  }

  bool isLastPiece() const noexcept { return rest_ == 0; }
  bool hasRoom() const noexcept { return stream_.avail_out > 0; }
  bool isFull() const noexcept { return written() >= output.size(); }
  std::size_t written() const noexcept { return stream_.total_out; }
  z_stream* get() noexcept { return &stream_; }
  /// With what zlib said; its texts are constants and stay when it has ended.
  GZipError error(int code) const { return {code, stream_.msg}; }

  /// What has been written. Only once.
  Data takeOutput() {
    output.resize(written());
    return Data(std::move(output));
  }

  std::vector<std::uint8_t> output;

 private:
  void require(int result) const {
    if (result != Z_OK) throw error(result);
  }

  const std::uint8_t* input_;
  std::size_t rest_;
  std::size_t pieceSize_;
  z_stream stream_{};
  int (*end_)(z_stream*) = nullptr;
};

// Doubles the capacity like a vector would. Behind half of `bound` it goes there at once: the old
// bytes and their copy together are then never more than `bound`.
void reserveUpTo(std::vector<std::uint8_t>& output, std::size_t size, std::size_t bound) {
  if (size <= output.capacity()) return;
  const std::size_t wanted = std::max(size, 2 * output.capacity());
  output.reserve(wanted > bound / 2 ? bound : wanted);
}

}  // namespace

std::size_t doubled(std::size_t size) {
  if (size > std::numeric_limits<std::size_t>::max() / 2) {
    fatalError("Doubling the size of the compressed data overflows.");
  }
  return 2 * size;
}

Data deflated(const Data& bytes, std::int32_t level, std::size_t pieceSize) {
  ZStream stream(bytes, pieceSize);
  stream.startDeflating(level);
  // The output's length grows by 12 bytes a pass: without compression the blocks that zlib makes
  // depend on the room that it has. The vector's capacity grows by factors, so this stays linear.
  do {
    stream.prepareInput();
    const int flush = stream.isLastPiece() ? Z_FINISH : Z_NO_FLUSH;
    do {
      stream.prepareOutput(stream.output.size() + zipStep);
      deflate(stream.get(), flush);  // with room for output it cannot fail
    } while (!stream.hasRoom());
  } while (!stream.isLastPiece());
  stream.end();
  return stream.takeOutput();
}

Data inflated(const Data& bytes, std::optional<std::size_t> maximumSize, std::size_t pieceSize) {
  constexpr std::size_t unbounded = std::numeric_limits<std::size_t>::max();
  // One byte over the maximum tells content that is too large from content that just fits.
  const std::size_t bound = maximumSize && *maximumSize < unbounded ? *maximumSize + 1 : unbounded;
  const std::size_t step = bytes.size() / 2;
  ZStream stream(bytes, pieceSize);
  stream.startInflating();
  stream.output.reserve(std::min(doubled(bytes.size()), bound));
  int result = Z_OK;
  do {
    const std::size_t size =
        step < bound - stream.output.size() ? stream.output.size() + step : bound;
    if (stream.isFull()) reserveUpTo(stream.output, size, bound);
    stream.prepareOutput(size);
    stream.prepareInput();
    result = inflate(stream.get(), Z_SYNC_FLUSH);
    if (stream.written() == bound) {
      const auto text = "the content is larger than " + std::to_string(*maximumSize) + " bytes";
      throw GZipError(Z_BUF_ERROR, text.c_str());
    }
  } while (result == Z_OK);
  if (stream.end() != Z_OK || result != Z_STREAM_END) throw stream.error(result);
  return stream.takeOutput();
}

}  // namespace tarn::detail

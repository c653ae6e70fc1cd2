#include <Support/Compression.hpp>

#include <zlib.h>

#include <algorithm>
#include <stdexcept>

namespace tarn::test {
namespace {

constexpr int gzipWindow = 15 + 16;
constexpr int zlibWindow = 15;
constexpr int rawWindow = -15;

void setInput(z_stream& stream, std::string_view bytes) {
  // zlib only reads through next_in; its type predates const.
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
}

std::string compress(std::string_view bytes, int window) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, window, 8, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  setInput(stream, bytes);
  std::string packed(deflateBound(&stream, static_cast<uLong>(bytes.size())), '\0');
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  const int result = deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate failed");
  return packed;
}

}  // namespace

std::string gzip(std::string_view bytes) { return compress(bytes, gzipWindow); }
std::string zlibDeflate(std::string_view bytes) { return compress(bytes, zlibWindow); }
std::string rawDeflate(std::string_view bytes) { return compress(bytes, rawWindow); }

std::string gzipInSteps(std::string_view bytes, int level, std::size_t step) {
  z_stream stream{};
  if (deflateInit2(&stream, level, Z_DEFLATED, gzipWindow, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  setInput(stream, bytes);
  std::string packed;
  std::string room(step, '\0');
  do {
    stream.next_out = reinterpret_cast<Bytef*>(room.data());
    stream.avail_out = static_cast<uInt>(step);
    deflate(&stream, Z_FINISH);
    packed.append(room, 0, step - stream.avail_out);
  } while (stream.avail_out == 0);
  deflateEnd(&stream);
  return packed;
}

std::string gzipOfZeros(std::uint64_t size) {
  constexpr std::uint64_t pieceSize = 1 << 20;
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, gzipWindow, 8, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  const std::string zeros(pieceSize, '\0');
  std::string packed;
  std::string room(pieceSize, '\0');
  int result = Z_OK;
  while (result == Z_OK) {
    const std::uint64_t piece = std::min(size, pieceSize);
    setInput(stream, std::string_view(zeros).substr(0, piece));
    size -= piece;
    stream.next_out = reinterpret_cast<Bytef*>(room.data());
    stream.avail_out = static_cast<uInt>(room.size());  // more than a piece of zeros ever needs
    result = deflate(&stream, size == 0 ? Z_FINISH : Z_NO_FLUSH);
    packed.append(room, 0, room.size() - stream.avail_out);
  }
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("deflate failed");
  return packed;
}

std::string gunzip(std::string_view bytes) {
  z_stream stream{};
  if (inflateInit2(&stream, gzipWindow) != Z_OK) throw std::runtime_error("inflateInit2 failed");
  setInput(stream, bytes);
  std::string content;
  int result = Z_OK;
  while (result == Z_OK) {
    char piece[16384];
    stream.next_out = reinterpret_cast<Bytef*>(piece);
    stream.avail_out = sizeof piece;
    result = inflate(&stream, Z_NO_FLUSH);
    content.append(piece, sizeof piece - stream.avail_out);
  }
  const bool whole = result == Z_STREAM_END && stream.avail_in == 0;
  inflateEnd(&stream);
  if (!whole) throw std::runtime_error("not one whole gzip member");
  return content;
}

}  // namespace tarn::test

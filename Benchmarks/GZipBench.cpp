// gzip of 10 MiB of JSON, there and back: the library, whose compressor grows its output in small
// steps, beside zlib with one buffer for all of it.

#include <TarnService/PayloadEncoding/GZip.hpp>

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

constexpr std::size_t contentSize = 10 << 20;
constexpr int repetitions = 5;

std::string json() {
  std::mt19937 random(1);
  const char* words[] = {"tea", "kettle", "saucer", "spoon", "biscuit", "sugar", "milk", "lemon"};
  std::string text = "[";
  while (text.size() < contentSize) {
    text += "{\"id\":" + std::to_string(random() % 1'000'000) + ",\"name\":\"" +
            words[random() % 8] + " " + words[random() % 8] +
            "\",\"price\":" + std::to_string(random() % 1000) + "." +
            std::to_string(random() % 100) + ",\"available\":" + (random() % 2 ? "true" : "false") +
            ",\"tags\":[\"" + words[random() % 8] + "\",\"" + words[random() % 8] + "\"]},";
  }
  text.resize(contentSize);
  return text;
}

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

Bytef* input(const std::vector<std::uint8_t>& bytes) { return const_cast<Bytef*>(bytes.data()); }

std::vector<std::uint8_t> oneShotDeflate(const std::vector<std::uint8_t>& bytes, int level) {
  z_stream stream{};
  require(deflateInit2(&stream, level, Z_DEFLATED, MAX_WBITS + 16, MAX_MEM_LEVEL,
                       Z_DEFAULT_STRATEGY) == Z_OK,
          "deflateInit2");
  std::vector<std::uint8_t> packed(deflateBound(&stream, static_cast<uLong>(bytes.size())));
  stream.next_in = input(bytes);
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = packed.data();
  stream.avail_out = static_cast<uInt>(packed.size());
  require(deflate(&stream, Z_FINISH) == Z_STREAM_END, "deflate");
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

// Knows the size of the content beforehand.
std::vector<std::uint8_t> oneShotInflate(const std::vector<std::uint8_t>& packed) {
  z_stream stream{};
  require(inflateInit2(&stream, MAX_WBITS + 16) == Z_OK, "inflateInit2");
  std::vector<std::uint8_t> bytes(contentSize);
  stream.next_in = input(packed);
  stream.avail_in = static_cast<uInt>(packed.size());
  stream.next_out = bytes.data();
  stream.avail_out = static_cast<uInt>(bytes.size());
  require(inflate(&stream, Z_FINISH) == Z_STREAM_END, "inflate");
  inflateEnd(&stream);
  return bytes;
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Runs the two in turn and prints the medians by processor time.
void compare(const std::string& name, const std::function<void()>& library,
             const std::function<void()>& oneShot) {
  std::vector<double> times[2];
  for (int repetition = 0; repetition < repetitions; ++repetition) {
    for (int side = 0; side < 2; ++side) {
      const double start = cpuSeconds();
      (side == 0 ? library : oneShot)();
      times[side].push_back(cpuSeconds() - start);
    }
  }
  for (auto& of : times) std::sort(of.begin(), of.end());
  const double median[2] = {times[0][repetitions / 2], times[1][repetitions / 2]};
  std::printf("%-24s TarnService %8.1f ms CPU  one-shot zlib %8.1f ms CPU  ratio %.2f\n",
              name.c_str(), median[0] * 1e3, median[1] * 1e3, median[0] / median[1]);
}

}  // namespace

int main() {
  const std::string text = json();
  const tarn::Data content{std::string_view(text)};
  const std::vector<std::uint8_t> bytes(content.begin(), content.end());
  for (const int level : {0, 1, -1, 9}) {
    const tarn::GZipArchiver archiver(content);
    compare(
        "compress, level " + std::to_string(level),
        [&] { archiver.zip(tarn::GZipCompression(level)); }, [&] { oneShotDeflate(bytes, level); });
  }
  const tarn::GZipUnarchiver unarchiver(
      tarn::GZipArchiver(content).zip(tarn::GZipCompression::default_));
  const std::vector<std::uint8_t> packed(unarchiver.compressedData.begin(),
                                         unarchiver.compressedData.end());
  require(unarchiver.unzip() == content && oneShotInflate(packed) == bytes, "wrong content");
  compare(
      "decompress", [&] { unarchiver.unzip(); }, [&] { oneShotInflate(packed); });
  compare(
      "decompress, with maximum", [&] { unarchiver.unzip(contentSize); },
      [&] { oneShotInflate(packed); });
  std::printf("%zu bytes compress to %zu\n", content.size(), packed.size());
}

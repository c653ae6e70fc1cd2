#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::test {

/// One gzip member.
std::string gzip(std::string_view bytes);
/// One gzip member, made with the most memory and by giving zlib `step` bytes of room for each pass
/// until the last one leaves some of it.
std::string gzipInSteps(std::string_view bytes, int level, std::size_t step);
/// One gzip member of `size` zero bytes, which are never held.
std::string gzipOfZeros(std::uint64_t size);
/// Content-Encoding "deflate" as standardised: a zlib stream.
std::string zlibDeflate(std::string_view bytes);
/// Content-Encoding "deflate" as some servers send it: without the zlib frame.
std::string rawDeflate(std::string_view bytes);
/// The content of one gzip member; throws std::runtime_error when it is damaged or anything follows
/// it.
std::string gunzip(std::string_view bytes);

}  // namespace tarn::test

#include <TarnService/PayloadEncoding/DataAdditions.hpp>
#include <TarnService/PayloadEncoding/Detail/ZStream.hpp>
#include <TarnService/Responses/GZipError.hpp>

#include <Fuzzers/Fuzzer.hpp>
#include <cstddef>
#include <optional>

// Any bytes as what a server sent: unpacked as they are, and packed first.
namespace tarn::fuzz {
namespace {

constexpr std::size_t maximum = 1 << 16;

/// The content; nothing where there is an error.
template <class F>
std::optional<Data> attempt(const F& body) {
  try {
    return body();
  } catch (const GZipError& error) {
    require(error.kind() == GZipError::Case::data || error.kind() == GZipError::Case::buffer,
            "what is no gzip is damaged or incomplete");
    return std::nullopt;
  }
}

void unpack(const Data& packed) {
  const auto content = attempt([&] { return gunzipped(packed, maximum); });
  if (!isGzipped(packed)) {
    require(content == packed, "what is not gzipped stays as it is");
    return;
  }
  require(attempt([&] { return detail::inflated(packed, maximum, 3); }) == content,
          "pieces of the input do not show");
  if (!content) return;
  require(content->size() <= maximum, "the maximum holds");
  require(attempt([&] { return gunzipped(packed); }) == content, "a maximum that fits is none");
  require(attempt([&] { return gunzipped(packed, content->size()); }) == content,
          "the maximum itself fits");
  if (!content->empty()) {
    require(!attempt([&] { return gunzipped(packed, content->size() - 1); }),
            "one byte over the maximum is an error");
  }
}

void packAndUnpack(const Data& bytes, GZipCompression compression) {
  const Data packed = gzipped(bytes, compression);
  require(bytes.empty() || isGzipped(packed), "what is packed says so");
  if (!isGzipped(bytes)) require(gunzipped(packed) == bytes, "what is packed unpacks");
}

}  // namespace

void fuzzOne(std::span<const std::uint8_t> input) {
  const Data bytes(input.data(), input.size());
  unpack(bytes);
  packAndUnpack(bytes, GZipCompression::none);
  packAndUnpack(bytes, GZipCompression::default_);
}

}  // namespace tarn::fuzz

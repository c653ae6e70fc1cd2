#include <Fuzzers/Fuzzer.hpp>
#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// What fuzzOne throws ends the process, and libFuzzer keeps the input.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tarn::fuzz::fuzzOne({data, size});
  return 0;
}

#include <gtest/gtest.h>

#include <Fuzzers/Fuzzer.hpp>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace tarn::fuzz {
namespace {

std::vector<std::uint8_t> contents(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(CorpusTests, EveryInputPasses) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TARN_CORPUS)) {
    SCOPED_TRACE(entry.path().filename());
    ++count;
    try {
      fuzzOne(contents(entry.path()));
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
  }
  EXPECT_GT(count, 10);
}

TEST(CorpusTests, AnEmptyInputPasses) { fuzzOne({}); }

}  // namespace
}  // namespace tarn::fuzz

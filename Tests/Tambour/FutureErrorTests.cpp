#include <Tambour/FutureError.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace tarn {
namespace {

TEST(FutureErrorTests, TellsWhatHappened) {
  struct Row {
    FutureError error;
    FutureError::Case kind;
    std::int64_t code;
    std::string message;
  };
  for (const auto& [error, kind, code, message] : {
           Row{FutureError::timedOut(), FutureError::Case::timedOut, 0,
               "The future was not settled in time."},
           Row{FutureError::cancelled(), FutureError::Case::cancelled, 1,
               "The future was cancelled."},
           Row{FutureError::broken(), FutureError::Case::broken, 2,
               "The producer of the future went away without settling it."},
       }) {
    SCOPED_TRACE(message);
    EXPECT_EQ(error.kind(), kind);
    EXPECT_EQ(error.code(), code);
    EXPECT_EQ(error.message(), message);
    EXPECT_EQ(error.domain(), "TarnService.FutureError");
  }
}

}  // namespace
}  // namespace tarn

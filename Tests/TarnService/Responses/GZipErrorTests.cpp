#include <TarnService/Responses/GZipError.hpp>

#include <gtest/gtest.h>

#include <limits>

namespace tarn {
namespace {

using Case = GZipError::Case;

struct Row {
  std::int32_t zlibCode;
  const char* zlibMessage;
  Case kind;
  std::int64_t code;
  std::string message;
};

const Row rows[] = {
    {-2, "bad state", Case::stream, 0, "Stream structure was inconsistent: bad state"},
    {-3, "incorrect header check", Case::data, 1,
     "The input data was corrupted: incorrect header check"},
    {-4, "heap", Case::memory, 2, "Not enough memory: heap"},
    {-5, "full", Case::buffer, 3,
     "No progress is possible or there was not enough room in the output buffer: full"},
    {-6, "old", Case::version, 4,
     "The zlib library version is incompatible with the version assumed by the caller: old"},
    {2, "need dictionary", Case::unknown, 5,
     "Unknown error occurred. Code: 2. Message: need dictionary"},
    {1, "stream end", Case::unknown, 5, "Unknown error occurred. Code: 1. Message: stream end"},
    {0, "fine", Case::unknown, 5, "Unknown error occurred. Code: 0. Message: fine"},
    {-1, "file error", Case::unknown, 5, "Unknown error occurred. Code: -1. Message: file error"},
    {-7, "beyond", Case::unknown, 5, "Unknown error occurred. Code: -7. Message: beyond"},
    {std::numeric_limits<std::int32_t>::min(), "least", Case::unknown, 5,
     "Unknown error occurred. Code: -2147483648. Message: least"},
    {std::numeric_limits<std::int32_t>::max(), "most", Case::unknown, 5,
     "Unknown error occurred. Code: 2147483647. Message: most"},
    {-3, nullptr, Case::data, 1, "The input data was corrupted: unknown gzip error"},
    {2, nullptr, Case::unknown, 5, "Unknown error occurred. Code: 2. Message: unknown gzip error"},
    {-2, "", Case::stream, 0, "Stream structure was inconsistent: "},
    {-4, "caf\xC3\xA9", Case::memory, 2, "Not enough memory: caf\xC3\xA9"},
    {-4, "caf\xE9", Case::memory, 2, "Not enough memory: unknown gzip error"},
};

TEST(GZipErrorTests, HasCaseCodeAndMessageOfEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const GZipError error(row.zlibCode, row.zlibMessage);
    EXPECT_EQ(error.kind(), row.kind);
    EXPECT_EQ(error.code(), row.code);
    EXPECT_EQ(error.zlibCode(), row.zlibCode);
    EXPECT_EQ(error.message(), row.message);
    EXPECT_EQ(error.logMessage(), row.message);
    EXPECT_FALSE(error.additionalLogInfo().has_value());
    EXPECT_TRUE(error.message().ends_with(error.zlibMessage()));
  }
}

TEST(GZipErrorTests, TravelsAsAnErrorInEveryRow) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.message);
    const Error error = GZipError(row.zlibCode, row.zlibMessage);
    EXPECT_EQ(error.domain(), "TarnService.GZipError");
    EXPECT_EQ(error.code(), row.code);
    EXPECT_EQ(error.userInfo().at("NSLocalizedDescription").description(), row.message);
    ASSERT_NE(error.as<GZipError>(), nullptr);
    EXPECT_EQ(error.as<GZipError>()->kind(), row.kind);
    EXPECT_NE(error.as<ErrorLoggable>(), nullptr);
  }
}

}  // namespace
}  // namespace tarn

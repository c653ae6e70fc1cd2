#include <TarnService/RequestModel/HTTPMediaType.hpp>

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(HTTPMediaTypeTests, NamesTheTypes) {
  struct Row {
    HTTPMediaType type;
    std::string rawValue;
  };
  const Row rows[] = {
      {HTTPMediaType::json, "application/json"},
      {HTTPMediaType::textPlain, "text/plain"},
      {HTTPMediaType::multipartFormData, "multipart/form-data"},
      {HTTPMediaType::applicationOctetStream, "application/octet-stream"},
      {HTTPMediaType::imagePNG, "image/png"},
      {HTTPMediaType::imageJPEG, "application/jpeg"},
      {HTTPMediaType::pdf, "application/pdf"},
      {HTTPMediaType::gzip, "application/gzip"},
      {HTTPMediaType::xml, "application/xml"},
      {HTTPMediaType::any, "*/*"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.type.rawValue, row.rawValue);
}

TEST(HTTPMediaTypeTests, IsMadeOfAnyText) {
  EXPECT_EQ(HTTPMediaType("text/csv; charset=utf-8").rawValue, "text/csv; charset=utf-8");
  EXPECT_EQ(HTTPMediaType("application/json"), HTTPMediaType::json);
  EXPECT_NE(HTTPMediaType("image/jpeg"), HTTPMediaType::imageJPEG);
}

}  // namespace
}  // namespace tarn

#include <TarnService/RequestModel/HTTPContentEncoder.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace tarn {
namespace {

/// Sends the bytes back to front.
class Mirror : public HTTPContentEncoderDefaults<Mirror> {
 public:
  explicit Mirror(Data originalData) : original_(std::move(originalData)) {}

  HTTPContentEncodingType encodingType() const { return HTTPContentEncodingType("mirror"); }
  Data encodedData() const {
    std::string text(original_.view());
    std::reverse(text.begin(), text.end());
    return Data(text);
  }

 private:
  Data original_;
};

class FailsToConstruct : public HTTPContentEncoderDefaults<FailsToConstruct> {
 public:
  explicit FailsToConstruct(const Data&) { throw std::runtime_error("no room"); }
  HTTPContentEncodingType encodingType() const { return HTTPContentEncodingType::gzip; }
  Data encodedData() const { return {}; }
};

struct WithoutEncodingType : HTTPContentEncoderDefaults<WithoutEncodingType> {
  explicit WithoutEncodingType(const Data&) {}
  Data encodedData() const { return {}; }
};
struct WithoutConstructor : HTTPContentEncoderDefaults<WithoutConstructor> {
  HTTPContentEncodingType encodingType() const { return HTTPContentEncodingType::gzip; }
  Data encodedData() const { return {}; }
};

static_assert(HTTPContentEncoder<Mirror>);
static_assert(HTTPContentEncoder<FailsToConstruct>);
static_assert(DataRepresentable<Mirror>);
static_assert(!HTTPContentEncoder<WithoutEncodingType>);
static_assert(!HTTPContentEncoder<WithoutConstructor>);
static_assert(!HTTPContentEncoder<Data>);

TEST(HTTPContentEncoderTests, NamesGzip) {
  EXPECT_EQ(HTTPContentEncodingType::gzip.rawValue, "gzip");
  EXPECT_EQ(HTTPContentEncodingType("br").rawValue, "br");
  EXPECT_EQ(HTTPContentEncodingType("gzip"), HTTPContentEncodingType::gzip);
}

TEST(HTTPContentEncoderTests, IsTheBytesThatItEncodes) {
  EXPECT_EQ(Mirror(Data("abc")).asData(), Data("cba"));
}

TEST(HTTPContentEncoderTests, ItsTypeEncodesAsItWould) {
  const auto encoded = HTTPContentEncoderType::of<Mirror>().encode(Data("abc"));
  EXPECT_EQ(encoded.data, Data("cba"));
  EXPECT_EQ(encoded.encodingType.rawValue, "mirror");
}

TEST(HTTPContentEncoderTests, ItsTypePassesOnWhatItThrows) {
  EXPECT_THROW(HTTPContentEncoderType::of<FailsToConstruct>().encode(Data("abc")),
               std::runtime_error);
}

}  // namespace
}  // namespace tarn

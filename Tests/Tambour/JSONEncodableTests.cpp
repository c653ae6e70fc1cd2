#include <Tambour/JSONEncodable.hpp>

#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <chrono>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tarn {
namespace {

struct Plain {
  std::string firstName;
  std::optional<int> age;
};

/// Names its encoder by a function.
struct Person {
  std::string firstName;

  static const JSONEncoder& encoder() {
    static const JSONEncoder instance = [] {
      JSONEncoder encoder;
      encoder.keyEncodingStrategy = JSONEncoder::convertToSnakeCase;
      return encoder;
    }();
    return instance;
  }
};

/// Names its encoder by a static field.
struct Sorted {
  int b = 1;
  int a = 2;

  static inline const JSONEncoder encoder = [] {
    JSONEncoder encoder;
    encoder.outputFormatting.sortedKeys = true;
    return encoder;
  }();
};

/// A device that encodes: its field is data.
struct Recorder {
  std::string encoder;
};

class Opaque {
 public:
  explicit Opaque(int number) : number_(number) {}
  int number() const { return number_; }

 private:
  int number_;
};

/// Bytes in a form of its own, JSON or not.
struct Form {
  int field = 0;
  Data asData() const { return Data("field=0"); }
};
/// JSON that turns itself into bytes.
struct Document {
  int field = 0;
  Data asData() const { return encoder().encode(*this); }
  static const JSONEncoder& encoder() { return jsonEncoder(); }
};

static_assert(JSONEncodable<Plain> && JSONEncodable<Person> && JSONEncodable<Recorder>);
static_assert(JSONEncodable<int> && JSONEncodable<std::string>);
static_assert(JSONEncodable<std::vector<Person>> && JSONEncodable<std::optional<Person>>);
static_assert(JSONEncodable<std::map<std::string, std::vector<Person>>>);
static_assert(!JSONEncodable<Opaque>);
static_assert(!JSONEncodable<std::vector<Opaque>> && !JSONEncodable<std::optional<Opaque>>);
static_assert(!JSONEncodable<std::unique_ptr<Person>>);
// What turns itself into bytes is sent as these.
static_assert(JSONWritable<Data> && !JSONEncodable<Data>);
static_assert(JSONWritable<Form> && !JSONEncodable<Form>);
static_assert(JSONEncodable<Document>);
static_assert(JSONEncodable<std::vector<Data>>);

TEST(JSONEncodableTests, TheProcessHasOneEncoder) {
  constexpr std::size_t count = 8;
  std::array<const JSONEncoder*, count> encoders{};
  std::barrier start(count);
  std::vector<std::thread> threads;
  for (auto& encoder : encoders) {
    threads.emplace_back([&start, &encoder] {
      start.arrive_and_wait();
      encoder = &jsonEncoder();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::set(encoders.begin(), encoders.end()), std::set{&jsonEncoder()});
}

TEST(JSONEncodableTests, TheEncoderOfTheProcessHasDefaultSettings) {
  const JSONEncoder& encoder = jsonEncoder();
  EXPECT_FALSE(encoder.keyEncodingStrategy);
  EXPECT_FALSE(encoder.nonConformingFloats.has_value());
  EXPECT_FALSE(encoder.outputFormatting.sortedKeys);
  EXPECT_FALSE(encoder.outputFormatting.prettyPrinted);
  EXPECT_EQ(encoder.encode(Plain{"Ada", std::nullopt}), Data(R"({"firstName":"Ada"})"));
  const JSONDate date =
      std::chrono::sys_days(std::chrono::year(2001) / 1 / 2) + std::chrono::milliseconds(500);
  EXPECT_EQ(encoder.encode(date), Data("86400.5"));
  EXPECT_EQ(encoder.encode(Data("ada")), Data("\"YWRh\""));
  EXPECT_THROW(encoder.encode(std::numeric_limits<double>::infinity()), EncodingError);
}

TEST(JSONEncodableTests, ATypeThatNamesNoneHasTheEncoderOfTheProcess) {
  EXPECT_EQ(&encoderOf<Plain>(), &jsonEncoder());
  EXPECT_EQ(&encoderOf<int>(), &jsonEncoder());
  EXPECT_EQ(&encoderOf<std::string>(), &jsonEncoder());
  EXPECT_EQ(&encoderOf<std::vector<Plain>>(), &jsonEncoder());
  EXPECT_EQ(&encoderOf<std::vector<Data>>(), &jsonEncoder());
  EXPECT_EQ((&encoderOf<std::map<std::string, int>>()), &jsonEncoder());
  EXPECT_EQ(&encoderOf<Recorder>(), &jsonEncoder());
}

TEST(JSONEncodableTests, ATypeNamesItsEncoderByAFunctionOrAStaticField) {
  EXPECT_EQ(&encoderOf<Person>(), &Person::encoder());
  EXPECT_EQ(&encoderOf<Sorted>(), &Sorted::encoder);
}

TEST(JSONEncodableTests, ContainersAndOptionalsHaveTheEncoderOfTheirContent) {
  const JSONEncoder* encoder = &Person::encoder();
  EXPECT_EQ(&encoderOf<std::vector<Person>>(), encoder);
  EXPECT_EQ(&encoderOf<std::list<Person>>(), encoder);
  EXPECT_EQ((&encoderOf<std::array<Person, 2>>()), encoder);
  EXPECT_EQ(&encoderOf<std::optional<Person>>(), encoder);
  EXPECT_EQ((&encoderOf<std::map<std::string, Person>>()), encoder);
  EXPECT_EQ((&encoderOf<std::map<std::string, std::vector<std::optional<Person>>>>()), encoder);
}

TEST(JSONEncodableTests, TheNamedEncoderWrites) {
  const std::vector<Person> people{{"Ada"}};
  EXPECT_EQ(encoderOf<std::vector<Person>>().encode(people), Data(R"([{"first_name":"Ada"}])"));
  EXPECT_EQ(jsonEncoder().encode(people), Data(R"([{"firstName":"Ada"}])"));
  EXPECT_EQ(encoderOf<Sorted>().encode(Sorted()), Data(R"({"a":2,"b":1})"));
}

}  // namespace
}  // namespace tarn

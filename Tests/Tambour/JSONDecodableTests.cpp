#include <Tambour/JSONDecodable.hpp>

#include <gtest/gtest.h>

#include <array>
#include <barrier>
#include <chrono>
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
};

/// Names its decoder by a function.
struct Person {
  std::string firstName;

  static const JSONDecoder& decoder() {
    static const JSONDecoder instance = [] {
      JSONDecoder decoder;
      decoder.keyDecodingStrategy = JSONDecoder::convertFromSnakeCase;
      return decoder;
    }();
    return instance;
  }
};

/// Names its decoder by a static field.
struct Shallow {
  std::vector<std::vector<int>> rows;

  static inline const JSONDecoder decoder = [] {
    JSONDecoder decoder;
    decoder.maximumDepth = 2;
    return decoder;
  }();
};

/// A device that decodes: its field is data.
struct Television {
  std::string decoder;
};
/// The same with a field that could be mistaken.
struct Factory {
  JSONDecoder decoder;
  static Factory decode(JSONReader& reader) {
    reader.skip();
    return {};
  }
};

class Opaque {
 public:
  explicit Opaque(int number) : number_(number) {}
  int number() const { return number_; }

 private:
  int number_;
};

/// A document whose elements are documents.
class Tree {
 public:
  using value_type = Tree;
  static Tree decode(JSONReader& reader) {
    reader.skip();
    return {};
  }
};

static_assert(JSONDecodable<Plain> && JSONDecodable<Person> && JSONDecodable<Television>);
static_assert(JSONDecodable<int> && JSONDecodable<std::string>);
static_assert(JSONDecodable<std::vector<Person>> && JSONDecodable<std::optional<Person>>);
static_assert(JSONDecodable<std::map<std::string, std::vector<Person>>>);
static_assert(!JSONDecodable<Opaque>);
static_assert(!JSONDecodable<std::vector<Opaque>> && !JSONDecodable<std::optional<Opaque>>);
static_assert(!JSONDecodable<std::map<int, Person>>);
static_assert(!JSONDecodable<std::string_view>);
static_assert(!JSONDecodable<std::unique_ptr<Person>>);

TEST(JSONDecodableTests, TheProcessHasOneDecoder) {
  constexpr std::size_t count = 8;
  std::array<const JSONDecoder*, count> decoders{};
  std::barrier start(count);
  std::vector<std::thread> threads;
  for (auto& decoder : decoders) {
    threads.emplace_back([&start, &decoder] {
      start.arrive_and_wait();
      decoder = &jsonDecoder();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::set(decoders.begin(), decoders.end()), std::set{&jsonDecoder()});
}

TEST(JSONDecodableTests, TheDecoderOfTheProcessHasDefaultSettings) {
  const JSONDecoder& decoder = jsonDecoder();
  EXPECT_FALSE(decoder.keyDecodingStrategy);
  EXPECT_FALSE(decoder.nonConformingFloats.has_value());
  EXPECT_EQ(decoder.maximumDepth, JSONDecoder().maximumDepth);
  EXPECT_EQ(decoder.decode<Plain>(R"({"firstName": "Ada"})").firstName, "Ada");
  EXPECT_EQ(decoder.decode<JSONDate>("86400"),
            std::chrono::sys_days(std::chrono::year(2001) / 1 / 2));
  EXPECT_EQ(decoder.decode<Data>("\"YWRh\""), Data("ada"));
}

TEST(JSONDecodableTests, ATypeThatNamesNoneHasTheDecoderOfTheProcess) {
  EXPECT_EQ(&decoderOf<Plain>(), &jsonDecoder());
  EXPECT_EQ(&decoderOf<int>(), &jsonDecoder());
  EXPECT_EQ(&decoderOf<std::string>(), &jsonDecoder());
  EXPECT_EQ(&decoderOf<std::vector<Plain>>(), &jsonDecoder());
  EXPECT_EQ(&decoderOf<std::vector<bool>>(), &jsonDecoder());
  EXPECT_EQ((&decoderOf<std::map<std::string, int>>()), &jsonDecoder());
  EXPECT_EQ(&decoderOf<Tree>(), &jsonDecoder());
}

TEST(JSONDecodableTests, ATypeNamesItsDecoderByAFunctionOrAStaticField) {
  EXPECT_EQ(&decoderOf<Person>(), &Person::decoder());
  EXPECT_EQ(&decoderOf<Shallow>(), &Shallow::decoder);
}

TEST(JSONDecodableTests, AFieldOfEachValueIsNoDecoder) {
  EXPECT_EQ(&decoderOf<Television>(), &jsonDecoder());
  EXPECT_EQ(&decoderOf<Factory>(), &jsonDecoder());
}

TEST(JSONDecodableTests, ContainersAndOptionalsHaveTheDecoderOfTheirContent) {
  const JSONDecoder* decoder = &Person::decoder();
  EXPECT_EQ(&decoderOf<std::vector<Person>>(), decoder);
  EXPECT_EQ(&decoderOf<std::list<Person>>(), decoder);
  EXPECT_EQ((&decoderOf<std::array<Person, 2>>()), decoder);
  EXPECT_EQ(&decoderOf<std::optional<Person>>(), decoder);
  EXPECT_EQ((&decoderOf<std::map<std::string, Person>>()), decoder);
  EXPECT_EQ((&decoderOf<std::map<std::string, std::vector<std::optional<Person>>>>()), decoder);
}

TEST(JSONDecodableTests, TheNamedDecoderReads) {
  const auto people =
      decoderOf<std::vector<Person>>().decode<std::vector<Person>>(R"([{"first_name": "Ada"}])");
  ASSERT_EQ(people.size(), 1u);
  EXPECT_EQ(people[0].firstName, "Ada");
  EXPECT_THROW(jsonDecoder().decode<Person>(R"({"first_name": "Ada"})"), DecodingError);
  EXPECT_NO_THROW(jsonDecoder().decode<Shallow>(R"({"rows": [[1]]})"));
  EXPECT_THROW(decoderOf<Shallow>().decode<Shallow>(R"({"rows": [[1]]})"), DecodingError);
}

TEST(JSONDecodableTests, OneDecoderServesSeveralThreads) {
  constexpr int rounds = 200;
  std::vector<std::thread> threads;
  std::array<int, 4> read{};
  for (auto& count : read) {
    threads.emplace_back([&count] {
      for (int i = 0; i < rounds; ++i) {
        const auto text = "[{\"first_name\": \"" + std::to_string(i) + "\"}]";
        const auto people = decoderOf<std::vector<Person>>().decode<std::vector<Person>>(text);
        count += people[0].firstName == std::to_string(i);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(read, (std::array{rounds, rounds, rounds, rounds}));
}

}  // namespace
}  // namespace tarn

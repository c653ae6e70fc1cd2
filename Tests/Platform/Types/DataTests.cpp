#include <Platform/Types/Data.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tarn {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const Data& data) { return {data.begin(), data.end()}; }

TEST(DataTests, EmptyDataHasNoBytes) {
  const Data cases[] = {Data(), Data(""), Data(std::string()), Data(Bytes()), Data(nullptr, 0)};
  for (const Data& data : cases) {
    EXPECT_TRUE(data.empty());
    EXPECT_EQ(data.size(), 0u);
    EXPECT_EQ(data.bytes(), nullptr);
    EXPECT_EQ(data.begin(), data.end());
    EXPECT_EQ(data.view(), "");
    EXPECT_EQ(data.utf8(), "");
    EXPECT_EQ(data, Data());
  }
}

TEST(DataTests, KeepsBytesOfEveryKindOfSource) {
  const std::string text("a\0b\xFF", 4);
  const Bytes bytes = {'a', 0, 'b', 0xFF};
  EXPECT_EQ(bytesOf(Data(std::string_view(text))), bytes);
  EXPECT_EQ(bytesOf(Data(text)), bytes);
  EXPECT_EQ(bytesOf(Data(std::string(text))), bytes);
  EXPECT_EQ(bytesOf(Data(bytes)), bytes);
  EXPECT_EQ(bytesOf(Data(text.data(), text.size())), bytes);
}

TEST(DataTests, TakesOverMovedBuffersWithoutCopying) {
  Bytes bytes(100, 7);
  const auto* vectorBytes = bytes.data();
  EXPECT_EQ(Data(std::move(bytes)).bytes(), vectorBytes);

  std::string text(100, 'x');
  const auto* textBytes = text.data();
  EXPECT_EQ(Data(std::move(text)).view().data(), textBytes);
}

TEST(DataTests, CopiesShareTheirBytes) {
  const Data first("some bytes");
  const Data second = first;
  Data third;
  third = second;
  EXPECT_EQ(second.bytes(), first.bytes());
  EXPECT_EQ(third.bytes(), first.bytes());
  EXPECT_EQ(&first.asData(), &first);
}

TEST(DataTests, MovingLeavesAnEmptyObject) {
  Data first("some bytes");
  const auto* bytes = first.bytes();
  const Data second = std::move(first);
  EXPECT_EQ(second.bytes(), bytes);
  EXPECT_TRUE(first.empty());  // NOLINT(bugprone-use-after-move): this is what is tested
  first.append("new");
  EXPECT_EQ(first.view(), "new");
}

TEST(DataTests, AssignmentToItselfKeepsTheBytes) {
  Data data("some bytes");
  const Data& alias = data;
  data = alias;
  EXPECT_EQ(data.view(), "some bytes");
}

TEST(DataTests, EveryChangeUnshares) {
  struct Row {
    const char* name;
    void (*change)(Data&);
    const char* expected;
  };
  const Row rows[] = {
      {"append", [](Data& data) { data.append("!", 1); }, "abc!"},
      {"append text", [](Data& data) { data.append(std::string_view("!")); }, "abc!"},
      {"append data", [](Data& data) { data.append(Data("!")); }, "abc!"},
      {"append itself", [](Data& data) { data.append(data); }, "abcabc"},
      {"mutableBytes", [](Data& data) { data.mutableBytes()[0] = 'X'; }, "Xbc"},
      {"shrink", [](Data& data) { data.resize(1); }, "a"},
      {"reserve", [](Data& data) { data.reserve(500); }, "abc"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Data original("abc");
    Data copy = original;
    row.change(copy);
    EXPECT_EQ(copy.view(), row.expected);
    EXPECT_NE(copy.bytes(), original.bytes());
    EXPECT_EQ(original.view(), "abc");
  }
}

TEST(DataTests, ChangesThatChangeNothingKeepSharing) {
  const Data original("abc");
  Data copy = original;
  copy.append(nullptr, 0);
  copy.append(Data());
  copy.resize(3);
  copy.reserve(2);
  EXPECT_EQ(copy.bytes(), original.bytes());
}

TEST(DataTests, SoleOwnerIsChangedInPlace) {
  Data data(std::string_view("abc"));
  data.reserve(100);
  const auto* bytes = data.bytes();
  data.append("defgh");
  EXPECT_EQ(data.mutableBytes(), bytes);
  EXPECT_EQ(data.bytes(), bytes);
  EXPECT_EQ(data.view(), "abcdefgh");
  { const Data temporary = data; }
  data.append("i");
  EXPECT_EQ(data.bytes(), bytes);
}

TEST(DataTests, AppendingToEmptyDataShares) {
  const Data source("abc");
  Data data;
  data.append(source);
  EXPECT_EQ(data.bytes(), source.bytes());
}

TEST(DataTests, AppendsPartsOfItself) {
  for (const bool isText : {false, true}) {
    for (const bool isShared : {false, true}) {
      SCOPED_TRACE(::testing::Message() << "text " << isText << ", shared " << isShared);
      const std::string start(64, 's');
      Data data = isText ? Data(std::string("0123456789") + start)
                         : Data(std::string_view("0123456789" + start));
      Data other;
      if (isShared) other = data;
      std::string expected = "0123456789" + start;
      for (int round = 0; round < 50; ++round) {
        data.append(data.bytes() + 3, 5);
        expected += "34567";
      }
      EXPECT_EQ(data.view(), expected);
    }
  }
}

TEST(DataTests, ManySmallAppendsDoNotCopyEachTime) {
  Data data;
  int moves = 0;
  const std::uint8_t* last = nullptr;
  for (int round = 0; round < 100'000; ++round) {
    data.append("x", 1);
    if (data.bytes() != last) ++moves;
    last = data.bytes();
  }
  EXPECT_EQ(data.size(), 100'000u);
  EXPECT_LT(moves, 40);
}

TEST(DataTests, ResizeFillsWithZeroBytes) {
  Data data("ab");
  data.resize(4);
  EXPECT_EQ(bytesOf(data), (Bytes{'a', 'b', 0, 0}));
  data.resize(0);
  EXPECT_TRUE(data.empty());
  EXPECT_EQ(data.mutableBytes(), nullptr);
}

TEST(DataTests, FailedGrowthLeavesTheBytes) {
  Data data("abc");
  const Data copy = data;
  EXPECT_THROW(data.resize(std::numeric_limits<std::size_t>::max()), std::exception);
  EXPECT_THROW(data.reserve(std::numeric_limits<std::size_t>::max()), std::exception);
  EXPECT_EQ(data.view(), "abc");
  EXPECT_EQ(copy.view(), "abc");
}

TEST(DataTests, EqualityComparesBytes) {
  EXPECT_EQ(Data("abc"), Data(Bytes{'a', 'b', 'c'}));
  EXPECT_NE(Data("abc"), Data("abd"));
  EXPECT_NE(Data("abc"), Data("ab"));
  EXPECT_NE(Data(std::string_view("a\0", 2)), Data(std::string_view("a\1", 2)));
}

TEST(DataTests, DescriptionTellsOnlyTheSize) {
  EXPECT_EQ(Data().description(), "0 bytes");
  EXPECT_EQ(Data("s").description(), "1 byte");
  EXPECT_EQ(Data("secret").description(), "6 bytes");
}

TEST(DataTests, CopiesOfOneObjectAreChangedOnSeveralThreads) {
  for (int round = 0; round < 50; ++round) {
    Data original("start ");
    const auto append = [](Data copy, char character, std::string& result) {
      for (int count = 0; count < 100; ++count) copy.append(&character, 1);
      result = copy.view();
    };
    std::string first;
    std::string second;
    {
      std::thread one(append, original, 'a', std::ref(first));
      std::thread two(append, original, 'b', std::ref(second));
      original = Data();  // so that one of the threads becomes the sole owner while the other may
                          // be reading
      one.join();
      two.join();
    }
    EXPECT_EQ(first, "start " + std::string(100, 'a'));
    EXPECT_EQ(second, "start " + std::string(100, 'b'));
  }
}

TEST(DataTests, CopiesAreMadeAndDroppedOnSeveralThreads) {
  const Data original("shared");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([copy = original] {
      std::size_t total = 0;
      for (int round = 0; round < 2000; ++round) {
        const Data another = copy;
        total += another.size();
      }
      EXPECT_EQ(total, 12'000u);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(original.view(), "shared");
}

struct UTF8Row {
  const char* name;
  std::string_view text;
  bool isValid;
};

const UTF8Row utf8Rows[] = {
    {"empty", "", true},
    {"ascii", "hello, world of text", true},
    {"nul", std::string_view("a\0b", 3), true},
    {"last of one byte", "\x7F", true},
    {"first of two bytes", "\xC2\x80", true},
    {"last of two bytes", "\xDF\xBF", true},
    {"first of three bytes", "\xE0\xA0\x80", true},
    {"below the surrogates", "\xED\x9F\xBF", true},
    {"above the surrogates", "\xEE\x80\x80", true},
    {"last of three bytes", "\xEF\xBF\xBF", true},
    {"first of four bytes", "\xF0\x90\x80\x80", true},
    {"last code point", "\xF4\x8F\xBF\xBF", true},
    {"mixed", "gr\xC3\xBC\xC3\x9F \xE2\x82\xAC \xF0\x9F\x98\x80 and more ascii text", true},
    {"lone continuation", "\x80", false},
    {"last continuation", "\xBF", false},
    {"overlong slash", "\xC0\xAF", false},
    {"overlong of two bytes", "\xC1\xBF", false},
    {"overlong of three bytes", "\xE0\x9F\xBF", false},
    {"overlong of four bytes", "\xF0\x8F\xBF\xBF", false},
    {"first surrogate", "\xED\xA0\x80", false},
    {"last surrogate", "\xED\xBF\xBF", false},
    {"surrogate pair", "\xED\xA0\xBD\xED\xB8\x80", false},
    {"above the last code point", "\xF4\x90\x80\x80", false},
    {"lead byte F5", "\xF5\x80\x80\x80", false},
    {"five bytes", "\xF8\x88\x80\x80\x80", false},
    {"six bytes", "\xFC\x84\x80\x80\x80\x80", false},
    {"FE", "\xFE", false},
    {"FF", "\xFF", false},
    {"cut after one of two", "\xC3", false},
    {"cut after two of three", "\xE2\x82", false},
    {"cut after three of four", "\xF0\x9F\x98", false},
    {"cut by ascii", "\xE2\x82 x", false},
    {"cut by a lead byte", "\xC3\xC3\xBC", false},
    {"third byte no continuation", "\xE2\x82\x20", false},
    {"fourth byte no continuation", "\xF0\x9F\x98\x20", false},
    {"error behind a word", "12345678\xFF", false},
    {"error inside a word",
     "1234\xFF"
     "678",
     false},
    {"error at the end of long text", "1234567890123456789012345\xC3", false},
};

TEST(DataTests, ValidatesUTF8) {
  for (const auto& row : utf8Rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(isValidUTF8(row.text), row.isValid);
    const auto text = Data(row.text).utf8();
    EXPECT_EQ(text.has_value(), row.isValid);
    if (text) {
      EXPECT_EQ(*text, row.text);
    }
  }
}

TEST(DataTests, FindsAnErrorAtEveryPosition) {
  const std::string valid = "plain \xC3\xBC and \xF0\x9F\x98\x80 and the rest of it";
  ASSERT_TRUE(isValidUTF8(valid));
  for (std::size_t position = 0; position < valid.size(); ++position) {
    SCOPED_TRACE(position);
    std::string broken = valid;
    broken[position] = '\xFF';
    EXPECT_FALSE(isValidUTF8(broken));
  }
}

}  // namespace
}  // namespace tarn

#include <Platform/Types/Detail/UserInformation.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace tarn {
namespace {

struct TextRow {
  const char* text;
  const char* expected;
};

TEST(UserInformationTests, IsTakenOutOfTheAddressesOfAText) {
  for (const auto& row : std::vector<TextRow>{
           {"", ""},
           {"no address at all", "no address at all"},
           {"://", "://"},
           {"mail to ann@h", "mail to ann@h"},
           {"http://h/", "http://h/"},
           {"http://ann@h", "http://h"},
           {"http://ann:secret@h", "http://h"},
           {"http://:secret@h/", "http://h/"},
           {"http://@h/", "http://h/"},
           {"http://ann:secret@h:81/a?b#c", "http://h:81/a?b#c"},
           {"http://ann:secret@[::1]:81/", "http://[::1]:81/"},
           {"http://ann:se@cret@h/", "http://h/"},
           {"socks5://ann:secret@h", "socks5://h"},
           {"both http://a:b@h/ and http://c:d@i/", "both http://h/ and http://i/"},
           {"{\"at\": \"http://a:b@h\", \"by\": \"c@d\"}",
            "{\"at\": \"http://h\", \"by\": \"c@d\"}"},
           // Nothing but a host has this "@" behind it.
           {"http://h/@ann", "http://h/@ann"},
           {"http://h:81/@ann", "http://h:81/@ann"},
           {"http://h:/@ann", "http://h:/@ann"},
           {"http://[::1]/@ann", "http://[::1]/@ann"},
           {"http://h?to=a@b", "http://h?to=a@b"},
           {"http://h#a@b", "http://h#a@b"},
           {"http://h failed for ann@h", "http://h failed for ann@h"},
           {"http://h:81 failed for ann@h", "http://h:81 failed for ann@h"},
           // Malformed: where the password ends is a guess.
           {"http://ann:sec/ret@h/", "http://h/"},
           {"http://ann:sec?ret@h/", "http://h/"},
           {"http://ann:sec#ret@h/", "http://h/"},
           {"http://ann:sec ret@h/", "http://h/"},
           {"http://ann:\nsecret@h/", "http://h/"},
           {"http://ann:sec/ret@h/@x", "http://x"},
           {"http://a:b/@c http://d:e/@f", "http://f"},
           {"\"http://a:b/@c\" \"http://d:e/@f\" @g", "\"http://c\" \"http://f\" @g"},
           {"http://ann@h and http://a:b/", "http://h and http://a:b/"},
           {"://\"a@b", "://b"},
           {"http://ann:sec\"ret@h/x", "http://h/x"},
           {"http://ann:sec/ret", "http://ann:sec/ret"},
           {"\"http://h:port/\" and ann@h", "\"http://h:port/\" and ann@h"},
       }) {
    EXPECT_EQ(detail::withoutUserInformation(row.text), row.expected) << row.text;
  }
}

// A pass over the whole text for each of its addresses would take a minute.
TEST(UserInformationTests, IsFoundAtOnceInAVeryLongText) {
  struct Row {
    const char* piece;  // many times, between these
    const char* start;
    const char* end;
    const char* expectedPiece;
    const char* expectedEnd;
  };
  constexpr std::size_t count = 120'000;
  const auto repeated = [](const std::string& piece) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += piece;
    return text;
  };
  const auto began = std::chrono::steady_clock::now();
  for (const auto& row : std::vector<Row>{
           {"://a:b/ ", "", "", "://a:b/ ", ""},
           {"://a:b/ ", "a@b ", "\"", "://a:b/ ", "\""},
           {"://a:b/ ", "", "\" a@b", "://a:b/ ", "\" a@b"},
           {"://a:b/\" ", "a@b ", "a@b", "://a:b/\" ", "a@b"},
           {"://a:b@c ", "", "", "://c ", ""},
       }) {
    const auto text = row.start + repeated(row.piece) + row.end;
    EXPECT_TRUE(detail::withoutUserInformation(text) ==
                row.start + repeated(row.expectedPiece) + row.expectedEnd)
        << row.start << row.piece << row.end;
  }
  EXPECT_TRUE(detail::withoutUserInformation(repeated("://a:b/ ") + "@h") == "://h");
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
}

}  // namespace
}  // namespace tarn

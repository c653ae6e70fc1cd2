#include <Platform/Types/Detail/UserInformation.hpp>

#include <gtest/gtest.h>

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
           {"http://ann:sec/ret", "http://ann:sec/ret"},
           {"\"http://h:port/\" and ann@h", "\"http://h:port/\" and ann@h"},
       }) {
    EXPECT_EQ(detail::withoutUserInformation(row.text), row.expected) << row.text;
  }
}

}  // namespace
}  // namespace tarn

#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ranges>
#include <stdexcept>
#include <sys/mman.h>
#include <vector>

namespace tarn {
namespace {

using testing::ElementsAre;
using testing::Pair;
using Field = HTTPHeaderFields::value_type;

static_assert(std::ranges::forward_range<HTTPHeaderFields>);
static_assert(std::input_iterator<HTTPHeaderFields::const_iterator>);
static_assert(std::is_same_v<std::iter_value_t<HTTPHeaderFields::const_iterator>, Field>);
static_assert(std::is_same_v<std::iter_reference_t<HTTPHeaderFields::const_iterator>, Field>);
static_assert(std::is_nothrow_move_constructible_v<HTTPHeaderFields>);
static_assert(std::is_nothrow_move_assignable_v<HTTPHeaderFields>);

std::vector<Field> listed(const HTTPHeaderFields& fields) { return {fields.begin(), fields.end()}; }

TEST(HTTPHeaderFields, LooksUpWithoutRegardToCase) {
  const HTTPHeaderFields fields{{"Content-Type", "text/plain"}};
  for (const char* name : {"Content-Type", "content-type", "CONTENT-TYPE", "cOnTeNt-TyPe"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(fields.value(name), "text/plain");
  }
  EXPECT_EQ(fields.value("Content-Typ"), std::nullopt);
}

TEST(HTTPHeaderFields, JoinsDuplicatesByCommaUnderTheFirstName) {
  HTTPHeaderFields fields;
  fields.add("Set-Thing", "a");
  fields.add("Other", "x");
  fields.add("set-thing", "b");
  fields.add("SET-THING", "");
  EXPECT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields.value("set-thing"), "a, b, ");
  EXPECT_EQ(fields.begin()->first, "Set-Thing");
}

TEST(HTTPHeaderFields, SetsAndRemovesWhateverTheCase) {
  HTTPHeaderFields fields{{"A", "1"}, {"B", "2"}};
  fields.set("a", "3");
  EXPECT_EQ(fields.value("A"), "3");
  fields.set("c", "4");
  EXPECT_EQ(fields.size(), 3u);
  fields.remove("b");
  EXPECT_FALSE(fields.contains("B"));
  fields.remove("b");
  EXPECT_EQ(fields.size(), 2u);
}

TEST(HTTPHeaderFields, KeepsTheOrderWhateverBecomesLongerShorterOrIsRemoved) {
  HTTPHeaderFields fields{{"A", "1"}, {"B", ""}, {"C", "3"}, {"", "nameless"}, {"D", "4"}};
  EXPECT_THAT(listed(fields), ElementsAre(Pair("A", "1"), Pair("B", ""), Pair("C", "3"),
                                          Pair("", "nameless"), Pair("D", "4")));
  fields.set("b", "longer than it was");
  fields.add("a", "x");
  fields.set("D", "");
  EXPECT_THAT(listed(fields), ElementsAre(Pair("A", "1, x"), Pair("B", "longer than it was"),
                                          Pair("C", "3"), Pair("", "nameless"), Pair("D", "")));
  fields.remove("C");
  fields.remove("");
  EXPECT_THAT(listed(fields),
              ElementsAre(Pair("A", "1, x"), Pair("B", "longer than it was"), Pair("D", "")));
  fields.remove("A");
  fields.remove("D");
  fields.remove("B");
  EXPECT_TRUE(fields.empty());
  EXPECT_EQ(fields.size(), 0u);
  EXPECT_EQ(fields.begin(), fields.end());
  EXPECT_EQ(fields, HTTPHeaderFields());
  fields.add("E", "5");
  EXPECT_THAT(listed(fields), ElementsAre(Pair("E", "5")));
}

TEST(HTTPHeaderFields, ArePutTogetherFromAListAsByAddingEach) {
  const std::vector<std::vector<Field>> lists{
      {},
      {{"A", "1"}},
      {{"A", "1"}, {"a", "2"}, {"A", ""}},
      {{"A", ""}, {"B", "2"}, {"a", "3"}, {"C", "4"}, {"b", "5"}, {"A", "6"}},
      {{"", "1"}, {"A", "2"}, {"", "3"}},
      {{"A", std::string_view("\0\xFF", 2)}, {"A", "2"}},
  };
  for (const auto& list : lists) {
    SCOPED_TRACE(testing::PrintToString(list));
    HTTPHeaderFields added;
    for (const auto& [name, value] : list) added.add(name, value);
    EXPECT_EQ(listed(HTTPHeaderFields(list)), listed(added));
  }
}

TEST(HTTPHeaderFields, TakesItsOwnTexts) {
  const std::string text(40, 't');
  // With room to spare and without: what is added moves the texts, or does not.
  for (const std::size_t others : {0u, 1u, 5u, 20u}) {
    SCOPED_TRACE(others);
    HTTPHeaderFields fields{{"First", text}, {"Second", "2"}};
    const auto value = [&](std::string_view name) { return fields.value(name).value(); };
    for (std::size_t i = 0; i < others; ++i) fields.add("Other-" + std::to_string(i), "o");
    fields.add(value("First"), value("Second"));
    EXPECT_EQ(value(text), "2");
    fields.add(fields.begin()->first, value("First"));
    EXPECT_EQ(value("First"), text + ", " + text);
    fields.set("First", value("Second"));
    EXPECT_EQ(value("First"), "2");
    fields.set("Second", value("Second"));
    EXPECT_EQ(value("Second"), "2");
    fields.set(value("Second"), value(text));  // under the name "2"
    EXPECT_EQ(value("2"), "2");
    EXPECT_EQ(fields.size(), others + 4);
    fields.remove(fields.begin()->first);
    EXPECT_EQ(fields.begin()->first, "Second");
  }
}

TEST(HTTPHeaderFields, JoinsManyInTimeThatGrowsWithWhatTheyHold) {
  // Were all that follows moved at each of them, it would be twenty thousand million bytes.
  const std::string large(1'000'000, 'x');
  std::vector<Field> list{{"A", ""}, {"B", large}};
  list.resize(20'000, {"a", "y"});
  const HTTPHeaderFields fields(list);
  EXPECT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields.value("A")->size(), 19'998u * 3);
  EXPECT_TRUE(fields.value("A")->starts_with(", y, y, "));
  EXPECT_EQ(fields.value("B"), large);
}

TEST(HTTPHeaderFields, OfManyNamesEachIsComparedWithFew) {
  // Were each compared with all the others, it would be a hundred thousand million bytes.
  const std::size_t count = 30'000;
  std::vector<std::string> names;
  for (std::size_t i = 0; i < count; ++i) {
    names.push_back(std::string(250, 'x') + std::to_string(100'000 + i));
  }
  std::vector<Field> list;
  for (const auto& name : names) list.emplace_back(name, "1");
  std::string again = names[7];
  again.front() = 'X';
  list.emplace_back(again, "2");
  const HTTPHeaderFields fields(list);
  EXPECT_EQ(fields.size(), count);
  EXPECT_EQ(fields.value(names[7]), "1, 2");
  auto name = names.begin();
  for (const auto& field : fields) ASSERT_EQ(field.first, *name++);
}

TEST(HTTPHeaderFields, RefuseATextOfFourGibibytes) {
  const std::size_t size = std::size_t{1} << 32;
  // Addresses alone: to read any of it would end the process.
  void* const place =
      mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(place, MAP_FAILED);
  const std::string_view text(static_cast<const char*>(place), size);
  HTTPHeaderFields fields{{"A", "1"}};
  const HTTPHeaderFields former = fields;
  EXPECT_THROW(fields.set("A", text), std::length_error);
  EXPECT_THROW(fields.add("B", text), std::length_error);
  EXPECT_THROW(fields.add(text, ""), std::length_error);
  EXPECT_EQ(fields, former);
  munmap(place, size);
}

TEST(HTTPHeaderFields, AreCopiedAndMovedWhole) {
  for (const std::size_t length : {0u, 1u, 100u}) {
    SCOPED_TRACE(length);
    const std::string text(length, 't');
    HTTPHeaderFields fields{{"A", text}};
    HTTPHeaderFields copy = fields;
    copy.set("A", "other");
    EXPECT_EQ(fields.value("A"), text);
    const HTTPHeaderFields moved = std::move(fields);
    EXPECT_EQ(moved.value("A"), text);
    fields = copy;
    EXPECT_EQ(fields.value("A"), "other");
  }
}

TEST(HTTPHeaderFields, AreIteratedMoreThanOnce) {
  const HTTPHeaderFields fields{{"A", "1"}, {"B", "2"}, {"C", "3"}};
  auto place = fields.begin();
  EXPECT_EQ((*place++).first, "A");
  const auto second = place;
  EXPECT_EQ(place->first, "B");
  EXPECT_EQ((++place)->second, "3");
  EXPECT_EQ(second->second, "2");
  EXPECT_EQ(std::next(second), place);
  EXPECT_EQ(++place, fields.end());
  EXPECT_EQ(std::ranges::max_element(fields)->first, "C");
}

TEST(HTTPHeaderFields, ComparesWithoutOrderAndCaseOfNames) {
  const HTTPHeaderFields fields{{"A", "1"}, {"B", "2"}};
  EXPECT_EQ(fields, (HTTPHeaderFields{{"b", "2"}, {"a", "1"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}, {"b", "3"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}, {"c", "2"}}));
  EXPECT_NE(fields, (HTTPHeaderFields{{"a", "1"}, {"b", "2"}, {"c", ""}}));
  // The same bytes one after another, divided otherwise.
  EXPECT_NE((HTTPHeaderFields{{"a", "bc"}}), (HTTPHeaderFields{{"ab", "c"}}));
  EXPECT_NE((HTTPHeaderFields{{"a", ""}}), HTTPHeaderFields());
}

TEST(HTTPHeaderFields, OnlyAsciiLettersHaveCase) {
  EXPECT_TRUE(equalsIgnoringCase("X-a.B", "x-A.b"));
  EXPECT_FALSE(equalsIgnoringCase("[", "{"));
  EXPECT_FALSE(equalsIgnoringCase("\xC4", "\xE4"));
  EXPECT_FALSE(equalsIgnoringCase("a", "ab"));
}

}  // namespace
}  // namespace tarn

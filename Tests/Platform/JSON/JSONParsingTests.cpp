#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONValue.hpp>
#include <Platform/JSON/ParsingDocuments.hpp>

#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {
namespace test {

// A document may be long: its name is enough.
void PrintTo(const AcceptedDocument& document, std::ostream* out) { *out << document.name; }
void PrintTo(const RefusedDocument& document, std::ostream* out) { *out << document.name; }
void PrintTo(const FreeDocument& document, std::ostream* out) { *out << document.name; }

}  // namespace test

namespace {

/// The name of a case as a test's: signs are spelled out, so that "0e+" and "0e" stay apart.
template <class Document>
std::string testName(const testing::TestParamInfo<Document>& info) {
  std::string name;
  for (const char c : info.param.name) {
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '_')
      name += c;
    else
      name += c == '+' ? "Plus" : c == '.' ? "Dot" : c == '#' ? "Hash" : "Minus";
  }
  return name;
}

/// The only element, or the whole document.
template <class T>
T onlyValue(const std::string& json) {
  const JSONDecoder decoder;
  if (json.find('[') == json.npos) return decoder.decode<T>(json);
  const auto elements = decoder.decode<std::vector<T>>(json);
  EXPECT_EQ(elements.size(), 1u);
  return elements.at(0);
}

class AcceptedDocumentTests : public testing::TestWithParam<test::AcceptedDocument> {};

TEST_P(AcceptedDocumentTests, IsAccepted) {
  const auto& [name, text, value] = GetParam();
  EXPECT_NO_THROW(JSONDecoder().decode<JSONValue>(text));
  if (const auto* string = std::get_if<std::string>(&value)) {
    EXPECT_EQ(onlyValue<std::string>(text), *string);
    EXPECT_EQ(onlyValue<JSONValue>(text), JSONValue(*string));
  }
  if (const auto* number = std::get_if<double>(&value)) {
    const auto read = onlyValue<double>(text);
    EXPECT_EQ(read, *number);
    EXPECT_EQ(std::signbit(read), std::signbit(*number));
    EXPECT_EQ(onlyValue<JSONValue>(text).as<double>(), *number);
  }
}

INSTANTIATE_TEST_SUITE_P(JSONParsing, AcceptedDocumentTests,
                         testing::ValuesIn(test::acceptedDocuments()),
                         testName<test::AcceptedDocument>);

struct Unrelated {
  int number = 0;
  std::string text;
};

/// Whatever is read from it, text that is no JSON is that first of all.
template <class T>
void expectCorrupted(const std::string& text) {
  try {
    JSONDecoder().decode<T>(text);
    ADD_FAILURE() << "accepted";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Case::dataCorrupted) << error.message();
  }
}

class RefusedDocumentTests : public testing::TestWithParam<test::RefusedDocument> {};

TEST_P(RefusedDocumentTests, IsCorrupted) {
  const auto& text = GetParam().text;
  expectCorrupted<JSONValue>(text);
  expectCorrupted<Unrelated>(text);
  expectCorrupted<std::string>(text);
  expectCorrupted<int>(text);
  expectCorrupted<std::vector<int>>(text);
}

INSTANTIATE_TEST_SUITE_P(JSONParsing, RefusedDocumentTests,
                         testing::ValuesIn(test::refusedDocuments()),
                         testName<test::RefusedDocument>);

class FreeDocumentTests : public testing::TestWithParam<test::FreeDocument> {};

TEST_P(FreeDocumentTests, KeepsItsOutcome) {
  const auto& [name, text, isAccepted] = GetParam();
  if (isAccepted)
    EXPECT_NO_THROW(JSONDecoder().decode<JSONValue>(text));
  else
    expectCorrupted<JSONValue>(text);
}

INSTANTIATE_TEST_SUITE_P(JSONParsing, FreeDocumentTests, testing::ValuesIn(test::freeDocuments()),
                         testName<test::FreeDocument>);

}  // namespace
}  // namespace tarn

#include <Support/System.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace tarn::test {
namespace {

// Without the blanks at the start of lines: examples are indented, documentation is not.
std::string unindented(const std::string& text) {
  std::string result;
  bool atStart = true;
  for (const char c : text) {
    if (atStart && c == ' ') continue;
    atStart = c == '\n';
    result += c;
  }
  return result;
}

std::vector<std::string> codeBlocks(const std::string& text) {
  constexpr std::string_view open = "```cpp\n";
  std::vector<std::string> blocks;
  for (auto start = text.find(open); start != text.npos; start = text.find(open, start)) {
    start += open.size();
    blocks.push_back(unindented(text.substr(start, text.find("```", start) - start)));
  }
  return blocks;
}

TEST(DocumentationTests, EveryPieceOfCodeStandsInAnExampleThatIsBuilt) {
  const std::filesystem::path source = TARN_SOURCE_DIR;
  std::string examples;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(source / "Examples"))
    if (entry.is_regular_file()) examples += unindented(readFile(entry.path().string()));

  std::vector<std::filesystem::path> pages{source / "README.md"};
  for (const auto& entry : std::filesystem::directory_iterator(source / "Documentation"))
    if (entry.path().extension() == ".md") pages.push_back(entry.path());
  std::size_t found = 0;
  for (const auto& page : pages) {
    for (const auto& block : codeBlocks(readFile(page.string()))) {
      SCOPED_TRACE(page.filename().string() + ":\n" + block);
      EXPECT_NE(examples.find(block), std::string::npos);
      ++found;
    }
  }
  EXPECT_GE(found, 8U);
}

}  // namespace
}  // namespace tarn::test

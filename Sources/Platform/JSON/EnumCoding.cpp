#include <Platform/JSON/Detail/QuotedText.hpp>
#include <Platform/JSON/EnumCoding.hpp>

namespace tarn::detail {

void failUnknownCase(JSONReader& reader, std::string_view found,
                     std::span<const std::string_view> names) {
  std::string expected;
  for (const auto name : names) expected += (expected.empty() ? "" : ", ") + quoted(name);
  reader.failCorrupted("expected one of " + expected + ", found the string " + quoted(found));
}

}  // namespace tarn::detail

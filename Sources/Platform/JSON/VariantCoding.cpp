#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/VariantCoding.hpp>

#include <algorithm>
#include <vector>

namespace tarn::detail {

bool ReadableKinds::contain(JSONReader::Kind kind, const JSONDecoder& decoder) const noexcept {
  if ((bits_ & bit(kind)) != 0) return true;
  return kind == JSONReader::Kind::string && (bits_ & nonConforming) != 0 &&
         decoder.nonConformingFloats.has_value();
}

FittingAlternatives::FittingAlternatives(const JSONReader& reader,
                                         std::span<const Alternative> choice)
    : alternatives(choice), decoder(reader.decoder()), kind(reader.kind()) {
  for (std::size_t i = 0; i < choice.size(); ++i) {
    if (!contain(i)) continue;
    if (telling != none && choice[i].name() != choice[telling].name()) {
      telling = none;
      return;
    }
    telling = i;
  }
}

void failExpectingOne(JSONReader& reader, std::span<const Alternative> alternatives) {
  std::vector<std::string_view> names;
  for (const auto& alternative : alternatives)
    if (std::ranges::find(names, alternative.name()) == names.end())
      names.push_back(alternative.name());
  std::string expected;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) expected += i + 1 < names.size() ? ", " : " or ";
    expected += names[i];
  }
  reader.failExpecting(expected);
}

}  // namespace tarn::detail

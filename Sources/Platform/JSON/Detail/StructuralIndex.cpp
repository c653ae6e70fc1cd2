#include <Platform/JSON/Detail/StructuralIndex.hpp>

#include <simdjson.h>

#include <algorithm>
#include <bit>
#include <memory>
#include <new>
#include <utility>

namespace tarn::detail {
namespace {

using Parser = std::unique_ptr<simdjson::internal::dom_parser_implementation>;

// Making a parser costs as much as its run over a short text, so that each thread keeps one for its
// next text; those for long texts, four times their size, go.
constexpr std::size_t longestKept = 256 * 1024;

thread_local bool threadEnds = false;

struct KeptParser {
  Parser parser;

  ~KeptParser() { threadEnds = true; }
};

// None once the thread's objects are destroyed: one of them may still decode.
Parser* keptParser() noexcept {
  thread_local KeptParser kept;
  return threadEnds ? nullptr : &kept.parser;
}

}  // namespace

// A value that decodes a text of its own finds none kept, and makes one.
StructuralIndex::StructuralIndex() {
  if (auto* const kept = keptParser()) parser_ = std::move(*kept);
}

StructuralIndex::~StructuralIndex() {
  if (!parser_ || parser_->capacity() > longestKept) return;
  if (auto* const kept = keptParser()) *kept = std::move(parser_);
}

// simdjson's first stage alone, chosen for the processor at run time. Its on-demand front end
// would be compiled for the oldest processor, needs a padded copy of the text and checks only what
// is read.
std::optional<std::string_view> StructuralIndex::build(std::string_view text) {
  using simdjson::error_code;
  if (text.empty()) return "the text is empty";
  if (text.size() > simdjson::SIMDJSON_MAXSIZE_BYTES) return "the text is larger than 4 GiB";
  if (!parser_ || parser_->capacity() < text.size()) {
    constexpr std::size_t depth = 1;  // the second stage's, which is not run
    const auto error = simdjson::get_active_implementation()->create_dom_parser_implementation(
        std::min(std::bit_ceil(text.size()), simdjson::SIMDJSON_MAXSIZE_BYTES), depth, parser_);
    if (error != error_code::SUCCESS) throw std::bad_alloc();
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  switch (parser_->stage1(bytes, text.size(), simdjson::stage1_mode::regular)) {
    case error_code::SUCCESS: {
      auto* end = parser_->structural_indexes.get() + parser_->n_structural_indexes;
      end[0] = end[1] = static_cast<std::uint32_t>(text.size());
      return std::nullopt;
    }
    case error_code::UTF8_ERROR:
      return "the text is not UTF-8";
    case error_code::UNCLOSED_STRING:
      return "a string is not closed";
    case error_code::UNESCAPED_CHARS:
      return "a string holds a control character, which has to be escaped";
    case error_code::EMPTY:
      return "the text is empty";
    default:
      return "the text is not JSON";
  }
}

std::span<const std::uint32_t> StructuralIndex::tokens() const noexcept {
  return {parser_->structural_indexes.get(), parser_->n_structural_indexes};
}

}  // namespace tarn::detail

#pragma once

#include <Platform/JSON/EncodingError.hpp>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

struct JSONEncoder;
class JSONWriter;

namespace detail {
std::string encodeDocument(const JSONEncoder& encoder, void (*encode)(JSONWriter&, const void*),
                           const void* value);
class JSONText;
struct EncodedMember;
void encodeMembers(JSONWriter& writer, const void* object, std::span<const EncodedMember> members);
}  // namespace detail

/// Writes one document; what a type's own `encode(JSONWriter&)` writes to.
///
/// Each value is written by exactly one call; a type writes exactly one value. Every call may throw
/// EncodingError, and what it calls may throw; then nothing of the call is written. Belongs to one
/// thread, and lives only as long as the call that lent it.
class JSONWriter {
 public:
  JSONWriter(const JSONWriter&) = delete;
  JSONWriter& operator=(const JSONWriter&) = delete;

  /// The settings of the encoder at work.
  const JSONEncoder& encoder() const noexcept { return encoder_; }
  /// Where the next value stands.
  CodingPath codingPath() const { return detail::codingPath(frame_); }

  /// Writes a value by the same rules as any member of a struct.
  template <class T>
  void encode(const T& value);
  /// Literals.
  void encode(const char* text) { string(text); }

  void null();
  void boolean(bool value);
  void integer(std::integral auto value) {
    if constexpr (std::unsigned_integral<decltype(value)>)
      unsignedInteger(value);
    else
      signedInteger(value);
  }
  /// In the shortest form that reads back the same, with ".0" where it is whole. What is not finite
  /// takes the encoder's `nonConformingFloats`, or throws.
  void floatingPoint(double value);
  void floatingPoint(float value);
  /// Throws where `text` is not UTF-8.
  void string(std::string_view text);
  /// A value that is JSON already: checked, and written as it is. Throws where it is none.
  void text(std::string_view json);

  /// Writes an object: `members()` calls member() for each.
  template <std::invocable F>
  void object(F&& members) {
    Nesting nesting(*this, '{');
    members();
    nesting.close();
  }
  template <class T>
  requires(!std::invocable<const T&>) void member(std::string_view key, const T& value) {
    member(key, [&] { encode(value); });
  }
  /// The same for a member whose value `write()` writes.
  template <std::invocable F>
  void member(std::string_view key, F&& write) {
    Entry entry(*this, key);
    write();
    entry.close();
  }
  /// Writes an array: `elements()` calls element() for each.
  template <std::invocable F>
  void array(F&& elements) {
    Nesting nesting(*this, '[');
    elements();
    nesting.close();
  }
  template <class T>
  requires(!std::invocable<const T&>) void element(const T& value) {
    element([&] { encode(value); });
  }
  template <std::invocable F>
  void element(F&& write) {
    Entry entry(*this);
    write();
    entry.close();
  }

  /// Throws with the path of the value being written.
  [[noreturn]] void failInvalid(std::string reason) const;

 private:
  friend std::string detail::encodeDocument(const JSONEncoder& encoder,
                                            void (*encode)(JSONWriter&, const void*),
                                            const void* value);
  friend void detail::encodeMembers(JSONWriter& writer, const void* object,
                                    std::span<const detail::EncodedMember> members);

  /// The place of a value where the writer stands: between members or elements there is none.
  enum class Slot : char { none, empty, filled };

  /// One object or array being written; taken back when an exception ends it.
  class Nesting {
   public:
    Nesting(JSONWriter& writer, char bracket);
    ~Nesting() {
      if (isOpen_) takeBack();
    }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

    /// `keyText`: the key between quotes and with its colon, in storage of whole blocks; or empty.
    void beginMember(std::string_view key, std::string_view keyText = {});
    void beginElement();
    void endEntry();
    void close();

   private:
    friend class JSONWriter;
    struct Member {
      std::string key;
      std::size_t start;
      std::size_t end;
    };

    char* beginEntry(std::size_t count);
    void sortMembers();
    void takeBack() noexcept;
    void leave() noexcept;

    JSONWriter& writer_;
    Nesting* outer_;
    detail::CodingFrame frame_;
    std::size_t start_;
    std::size_t count_ = 0;
    char bracket_;
    bool isOpen_ = true;
    std::vector<Member> members_;  // where keys are sorted
  };

  /// One member or element being written; taken back when an exception ends it.
  class Entry {
   public:
    Entry(JSONWriter& writer, std::string_view key);
    explicit Entry(JSONWriter& writer);
    ~Entry() {
      if (isOpen_) takeBack();
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    void close() {
      nesting_.endEntry();
      isOpen_ = false;
    }

   private:
    Entry(JSONWriter& writer, char bracket);

    void takeBack() noexcept;

    Nesting& nesting_;
    std::size_t start_;
    bool isOpen_ = true;
  };

  JSONWriter(const JSONEncoder& encoder, detail::JSONText& text) noexcept;

  void signedInteger(std::int64_t value);
  void unsignedInteger(std::uint64_t value);
  template <class Float>
  void number(Float value);
  void requireSlot() const;
  Nesting& nestingFor(char bracket) const;
  const std::vector<std::string>& convertedKeys(std::span<const detail::EncodedMember> members);
  std::string finish() const;

  const JSONEncoder& encoder_;
  detail::JSONText& text_;
  Nesting* innermost_ = nullptr;
  const detail::CodingFrame* frame_ = nullptr;
  std::size_t depth_ = 0;
  Slot slot_ = Slot::empty;
  bool isPretty_;
  bool isSorted_;
  std::map<const detail::EncodedMember*, std::vector<std::string>> convertedKeys_;
};

}  // namespace tarn

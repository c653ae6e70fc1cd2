#pragma once

#include <Platform/JSON/DecodingError.hpp>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace tarn {

struct JSONDecoder;
class JSONReader;

namespace detail {
class JSONDocument;
struct DecodedMember;
struct Number;
void decodeMembers(JSONReader& reader, void* object, std::span<const DecodedMember> members);
}  // namespace detail

/// Walks through a document from value to value; what a type's own `decode(JSONReader&)` reads
/// from.
///
/// Stands in front of one value at a time. Every read takes that value and throws DecodingError
/// where it is of another kind; a value that a callback leaves alone is checked and passed over.
/// Belongs to one thread, and lives only as long as the call that lent it.
class JSONReader {
 public:
  enum class Kind { null, boolean, number, string, array, object };

  JSONReader(const JSONReader&) = delete;
  JSONReader& operator=(const JSONReader&) = delete;

  /// The kind of the value that comes next, which is not taken.
  Kind kind() const;
  /// The settings of the decoder at work.
  const JSONDecoder& decoder() const noexcept { return decoder_; }
  /// Where the next value stands.
  CodingPath codingPath() const { return detail::codingPath(frame_); }

  /// Reads the next value as a T, by the same rules as any member of a struct.
  template <class T>
  T decode();

  /// Takes a null if one comes next, and says whether it did.
  bool null();
  bool boolean();
  /// Throws `dataCorrupted` for a fraction and for what does not fit; 12.0 and 1e3 are whole
  /// numbers.
  template <std::integral T>
  T integer() {
    if constexpr (std::unsigned_integral<T>)
      return static_cast<T>(unsignedInteger(std::numeric_limits<T>::max()));
    else
      return static_cast<T>(
          signedInteger(std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  }
  /// Throws `dataCorrupted` where the number is too large for T; one that is too small is zero. The
  /// decoder's `nonConformingFloats` are read too.
  template <class T>
  requires(std::same_as<T, float> || std::same_as<T, double>) T floatingPoint() {
    T value;
    readFloatingPoint(value);
    return value;
  }
  std::string string();
  /// The same, in the place of what `value` was.
  void string(std::string& value);
  /// The text of the next value as it stands in the document, checked; lives as long as the reader.
  std::string_view text();
  /// Checks the next value and passes over it.
  void skip();

  /// Reads an object: calls `member(key)` in front of each value, in the document's order. A key
  /// may come twice; it is valid until `member` returns.
  template <std::invocable<std::string_view> F>
  void object(F&& member) {
    Nesting nesting(*this, Kind::object);
    while (nesting.next()) {
      const Position value = token_;
      member(nesting.key());
      if (token_ == value) skip();
    }
  }
  /// Reads an array: calls `element()` in front of each value.
  template <std::invocable F>
  void array(F&& element) {
    Nesting nesting(*this, Kind::array);
    while (nesting.next()) {
      const Position value = token_;
      element();
      if (token_ == value) skip();
    }
  }
  /// Calls `read()`; where it throws a DecodingError, goes back to the value it started at and
  /// answers false. Throws `dataCorrupted` where attempts inside attempts have read too much of the
  /// document again and again.
  template <std::invocable F>
  bool attempt(F&& read) {
    Attempt attempt(*this);
    try {
      read();
      return true;
    } catch (const DecodingError&) {
      attempt.fail();
      return false;
    }
  }

  /// Throws `typeMismatch`, "expected `what`, found ...", or `valueNotFound` where a null comes
  /// next.
  [[noreturn]] void failExpecting(std::string_view what) const;
  /// Throws `dataCorrupted` with the path of the value in turn. Whether it has been taken or not,
  /// who catches the exception finds the reader in front of it.
  [[noreturn]] void failCorrupted(std::string reason);
  /// Throws `keyNotFound`; for use after object(), which the reader is in front of again.
  [[noreturn]] void failMissing(std::string_view key);

 private:
  friend class detail::JSONDocument;
  friend void detail::decodeMembers(JSONReader& reader, void* object,
                                    std::span<const detail::DecodedMember> members);

  /// Into the positions of the document's tokens, where each value, bracket, colon and comma
  /// starts.
  using Position = const std::uint32_t*;

  /// One object or array on the way. When an exception ends it, the reader stands in front of it
  /// again, so that who catches the exception can go on.
  class Nesting {
   public:
    Nesting(JSONReader& reader, Kind kind);
    ~Nesting();
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

    /// Goes to the next value, past its key; false once the closing bracket is taken.
    bool next();
    /// The same in an object that is likely to go on with one of the members from `member` on,
    /// which that becomes; null where the key is to be looked up.
    bool next(const detail::DecodedMember*& member, const detail::DecodedMember* last);
    std::string_view key() const noexcept { return frame_.key; }

   private:
    bool goOn(bool isArray);
    void readKey();
    void faceValue() noexcept;

    JSONReader& reader_;
    Position start_;
    detail::CodingFrame frame_;
    std::unique_ptr<std::string> unescapedKey_;  // once there was one
    bool isOpen_ = true;
  };

  /// One call of attempt().
  class Attempt {
   public:
    /// Throws where no more may be read again.
    explicit Attempt(JSONReader& reader);
    ~Attempt() { --reader_.attempts_; }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    /// Goes back to the value; throws as the constructor does.
    void fail();

   private:
    JSONReader& reader_;
    Position start_;
  };

  /// Of the text's end stand two positions behind the last of `tokens`.
  JSONReader(std::string_view text, std::span<const std::uint32_t> tokens,
             const JSONDecoder& decoder) noexcept;

  /// The first character of the next token; NUL at the end of the text.
  char current() const noexcept { return *token_ < text_.size() ? text_[*token_] : '\0'; }
  bool atEnd() const noexcept { return *token_ == text_.size(); }
  /// The next token and the white space behind it.
  std::string_view token() const noexcept { return {text_.data() + *token_, token_[1] - *token_}; }
  /// A number or a word, up to the next white space or token.
  std::string_view scalar() const noexcept;
  /// What stands between the quotes of the next token, a string.
  std::string_view stringContent() const noexcept;
  /// Whether the next token, without its first characters, goes on.
  bool goesOn(std::size_t size) const noexcept;
  bool takeWord(std::string_view word) noexcept;
  /// Takes a key and its colon if they stand in the document like those of a member, which it
  /// answers; else null.
  const detail::DecodedMember* takeKey(const detail::DecodedMember* first,
                                       const detail::DecodedMember* last) noexcept;
  /// Takes a string and answers what stands between the quotes, which may have to be unescaped.
  std::string_view takeString();
  /// Whether the text between the quotes of a string stands for another one.
  bool isEscaped(std::string_view content) noexcept;
  bool searchEscape(std::string_view content) noexcept;
  detail::Number takeNumber();
  std::int64_t signedInteger(std::int64_t least, std::int64_t greatest);
  std::uint64_t unsignedInteger(std::uint64_t greatest);
  template <class T>
  void readFloat(T& value);
  template <class T>
  void readNonConforming(T& value);
  void readFloatingPoint(float& value);
  void readFloatingPoint(double& value);
  /// For the string that was just taken.
  void appendUnescaped(std::string& result, std::string_view escaped);
  std::string describedString() const;
  /// To a token that has been read, or to be read, before.
  void goBack(Position place) noexcept;
  void chargeReading(std::size_t count) noexcept;
  [[noreturn]] void failTooManyAttempts();
  [[noreturn]] void failTooDeep();
  [[noreturn]] void failSyntax(std::string_view expected) const;
  [[noreturn]] void failNumber() const;
  template <class T>
  [[noreturn]] void failOutside(T least, T greatest, std::string_view found);
  [[noreturn]] void failOutOfRange(std::string_view found);

  std::string_view text_;
  std::string_view plain_;  // a part of the text that has no backslash
  Position token_;          // the next
  Position value_;          // the first of the value in turn
  const JSONDecoder& decoder_;
  const detail::CodingFrame* frame_ = nullptr;
  std::size_t depth_ = 0;
  std::size_t attempts_ = 0;  // inside each other
  std::size_t readableAgain_;
};

}  // namespace tarn

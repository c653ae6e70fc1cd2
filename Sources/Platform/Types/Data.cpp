#include <Platform/Types/Data.hpp>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>
#include <variant>

namespace tarn {

// What objects share. The bytes lie behind it, or in a buffer that was taken over.
struct Data::Storage {
  struct TakenOver;

  static Storage* withRoomFor(std::size_t capacity) {
    if (capacity > std::numeric_limits<std::ptrdiff_t>::max() - sizeof(Storage)) {
      throw std::length_error("more bytes than there can be");
    }
    void* const place = ::operator new(sizeof(Storage) + capacity);
    auto* const storage = ::new (place) Storage;
    storage->first = static_cast<std::uint8_t*>(place) + sizeof(Storage);
    storage->capacity = capacity;
    return storage;
  }
  void letGo() noexcept;

  void add(const std::uint8_t* bytes, std::size_t count) noexcept {
    if (count > 0) std::memcpy(first + size, bytes, count);
    size += count;
  }

  std::atomic<std::size_t> owners = 1;
  std::uint8_t* first = nullptr;
  std::size_t size = 0;
  std::size_t capacity = 0;  // 0 where it was taken over
};

// Either kind of buffer, so that text and byte vectors are both taken over without copying.
struct Data::Storage::TakenOver final : Storage {
  template <class Buffer>
  explicit TakenOver(Buffer&& taken) : buffer(std::forward<Buffer>(taken)) {
    std::visit(
        [this](auto& held) {
          first = reinterpret_cast<std::uint8_t*>(held.data());
          size = held.size();
        },
        buffer);
  }

  std::variant<std::vector<std::uint8_t>, std::string> buffer;
};

void Data::Storage::letGo() noexcept {
  if (owners.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  if (capacity == 0) {
    delete static_cast<TakenOver*>(this);
  } else {
    ::operator delete(this);
  }
}

Data::Data(std::vector<std::uint8_t> bytes)
    : storage_(bytes.empty() ? nullptr : new Storage::TakenOver(std::move(bytes))) {}

Data::Data(const void* bytes, std::size_t size) {
  if (size == 0) return;
  storage_ = Storage::withRoomFor(size);
  storage_->add(static_cast<const std::uint8_t*>(bytes), size);
}

Data::Data(const Data& other) noexcept : storage_(other.storage_) {
  if (storage_ != nullptr) storage_->owners.fetch_add(1, std::memory_order_relaxed);
}

Data& Data::operator=(Data other) noexcept {
  std::swap(storage_, other.storage_);
  return *this;
}

Data::~Data() {
  if (storage_ != nullptr) storage_->letGo();
}

Data::Storage* Data::adopt(std::string&& text) {
  return text.empty() ? nullptr : new Storage::TakenOver(std::move(text));
}

const std::uint8_t* Data::bytes() const noexcept {
  return storage_ != nullptr ? storage_->first : nullptr;
}

std::size_t Data::size() const noexcept { return storage_ != nullptr ? storage_->size : 0; }

// The count is read with acquire order: an owner that has just let go may have been reading until
// then.
bool Data::isSoleOwner() const noexcept {
  return storage_ != nullptr && storage_->owners.load(std::memory_order_acquire) == 1;
}

// Storage of this object alone, with room for so many bytes, of which there are some.
Data::Storage& Data::ownStorage(std::size_t capacity) {
  if (isSoleOwner() && storage_->capacity >= capacity) return *storage_;
  Data copy;
  copy.storage_ = Storage::withRoomFor(std::max(capacity, size()));
  copy.storage_->add(begin(), size());
  *this = std::move(copy);
  return *storage_;
}

// With room for more to come than is asked for, or many small additions would copy all each time.
Data::Storage& Data::growTo(std::size_t size) {
  const bool grows = isSoleOwner() && storage_->capacity < size;
  return ownStorage(grows ? std::max(size, 2 * this->size()) : size);
}

void Data::append(const void* bytes, std::size_t size) {
  if (size == 0) return;
  const auto* source = static_cast<const std::uint8_t*>(bytes);
  const bool isOwn = std::less_equal<>()(begin(), source) && std::less<>()(source, end());
  if (isOwn) return append(Data(bytes, size));  // growing may free what is being copied
  growTo(this->size() + size).add(source, size);
}

void Data::append(const Data& other) {
  if (empty()) {
    *this = other;
  } else {
    append(other.bytes(), other.size());
  }
}

void Data::reserve(std::size_t capacity) {
  if (capacity > size()) ownStorage(capacity);
}

void Data::resize(std::size_t size) {
  const std::size_t before = this->size();
  if (size == before) return;
  if (size < before && !isSoleOwner()) {
    *this = Data(bytes(), size);
    return;
  }
  Storage& storage = size < before ? *storage_ : growTo(size);
  if (size > before) std::memset(storage.first + before, 0, size - before);
  storage.size = size;
}

std::uint8_t* Data::mutableBytes() {
  if (empty()) return nullptr;
  return isSoleOwner() ? storage_->first : ownStorage(size()).first;
}

std::string_view Data::view() const noexcept {
  return {reinterpret_cast<const char*>(bytes()), size()};
}

std::optional<std::string> Data::utf8() const {
  if (!isValidUTF8(view())) return std::nullopt;
  return std::string(view());
}

std::string Data::description() const {
  return std::to_string(size()) + (size() == 1 ? " byte" : " bytes");
}

namespace {

// The length of the well-formed sequence at the start of `text`, 0 where there is none (RFC 3629
// section 4).
std::size_t sequenceLength(std::string_view text) noexcept {
  const auto byte = [text](std::size_t index) -> unsigned {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0u;
  };
  const auto isTail = [&](std::size_t index) { return (byte(index) & 0xC0u) == 0x80u; };
  const unsigned lead = byte(0);
  const unsigned second = byte(1);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return isTail(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    const bool overlong = lead == 0xE0 && second < 0xA0;
    const bool surrogate = lead == 0xED && second > 0x9F;
    return !overlong && !surrogate && isTail(1) && isTail(2) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const bool overlong = lead == 0xF0 && second < 0x90;
    const bool tooHigh = lead == 0xF4 && second > 0x8F;
    return !overlong && !tooHigh && isTail(1) && isTail(2) && isTail(3) ? 4 : 0;
  }
  return 0;
}

}  // namespace

bool isValidUTF8(std::string_view text) noexcept {
  while (!text.empty()) {
    // Most text is ASCII: eight characters at a time as long as none has its high bit set.
    std::uint64_t word = 0;
    while (text.size() >= sizeof word) {
      std::memcpy(&word, text.data(), sizeof word);
      if ((word & 0x8080808080808080u) != 0) break;
      text.remove_prefix(sizeof word);
    }
    if (text.empty()) return true;
    const std::size_t length = sequenceLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace tarn

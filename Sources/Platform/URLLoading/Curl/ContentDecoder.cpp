#include <Platform/URLLoading/Curl/ContentDecoder.hpp>
#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/HTTPHeaderFields.hpp>

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace tarn::detail {

namespace {

enum class Coding { gzip, deflate };

/// Where a layer takes its input from.
class Source {
 public:
  virtual ~Source() = default;
  virtual std::optional<std::size_t> read(std::uint8_t* buffer, std::size_t size) = 0;
  virtual bool isComplete() const noexcept = 0;
};

/// The bytes as they came from the network.
class Input final : public Source {
 public:
  void feed(const std::uint8_t* bytes, std::size_t size) noexcept {
    bytes_ = bytes;
    size_ = size;
  }
  void keep() {
    std::vector<std::uint8_t> rest(bytes_, bytes_ + size_);
    kept_.swap(rest);
    bytes_ = kept_.data();
  }

  std::optional<std::size_t> read(std::uint8_t* buffer, std::size_t size) override {
    const std::size_t count = std::min(size, size_);
    if (count > 0) std::memcpy(buffer, bytes_, count);
    bytes_ += count;
    size_ -= count;
    return count;
  }
  bool isComplete() const noexcept override { return true; }

 private:
  const std::uint8_t* bytes_ = nullptr;
  std::size_t size_ = 0;
  std::vector<std::uint8_t> kept_;
};

/// One coding.
class Layer final : public Source {
 public:
  Layer(Coding coding, Source& source) : coding_(coding), source_(source) {}
  ~Layer() override {
    if (started_) inflateEnd(&stream_);
  }
  Layer(const Layer&) = delete;
  Layer& operator=(const Layer&) = delete;

  std::optional<std::size_t> read(std::uint8_t* buffer, std::size_t size) override {
    stream_.next_out = buffer;
    stream_.avail_out = static_cast<uInt>(size);
    while (stream_.avail_out > 0) {
      switch (advance()) {
        case Step::corrupt:
          return std::nullopt;
        case Step::starved:
          return size - stream_.avail_out;
        case Step::moved:
          break;
      }
    }
    return size;
  }

  bool isComplete() const noexcept override {
    return source_.isComplete() && (state_ == State::empty || state_ == State::ended);
  }

 private:
  enum class State { empty, decoding, ended };
  enum class Step { moved, starved, corrupt };

  Step advance() {
    if (stream_.avail_in == 0 || (!started_ && stream_.avail_in < headSize)) {
      const auto added = refill();
      if (!added) return Step::corrupt;
      if (*added == 0) return Step::starved;
    }
    if (state_ == State::ended) return startMember();
    state_ = State::decoding;
    if (!started_) {
      if (stream_.avail_in < headSize) return Step::moved;
      start();
    }
    switch (inflate(&stream_, Z_NO_FLUSH)) {
      case Z_OK:
      case Z_BUF_ERROR:
        return Step::moved;
      case Z_STREAM_END:
        state_ = State::ended;
        return Step::moved;
      default:
        return Step::corrupt;
    }
  }

  std::optional<std::size_t> refill() {
    if (stream_.avail_in > 0) std::memmove(buffer_.data(), stream_.next_in, stream_.avail_in);
    const auto added =
        source_.read(buffer_.data() + stream_.avail_in, buffer_.size() - stream_.avail_in);
    stream_.next_in = buffer_.data();
    if (added) stream_.avail_in += static_cast<uInt>(*added);
    return added;
  }

  // A gzip body may be several members one after another (RFC 1952, 2.2). Anything else behind the
  // end is ignored, as browsers do: padding is common.
  Step startMember() {
    constexpr std::uint8_t gzipMagic = 0x1F;
    if (coding_ == Coding::gzip && !padded_ && *stream_.next_in == gzipMagic) {
      inflateReset(&stream_);
      state_ = State::decoding;
    } else {
      padded_ = true;
      stream_.avail_in = 0;
    }
    return Step::moved;
  }

  void start() {
    constexpr int zlibFrame = MAX_WBITS;
    constexpr int gzipFrame = MAX_WBITS + 16;
    constexpr int noFrame = -MAX_WBITS;
    const unsigned head = static_cast<unsigned>(stream_.next_in[0] << 8) | stream_.next_in[1];
    const bool framed = (head & 0x0F00U) == 0x0800U && head % 31U == 0;
    const int window = coding_ == Coding::gzip ? gzipFrame : framed ? zlibFrame : noFrame;
    if (inflateInit2(&stream_, window) != Z_OK) throw std::bad_alloc();
    started_ = true;
  }

  static constexpr std::size_t headSize = 2;  // what tells a zlib frame from none

  Coding coding_;
  Source& source_;
  State state_ = State::empty;
  bool started_ = false;
  bool padded_ = false;
  z_stream stream_{};
  std::array<std::uint8_t, 16 * 1024> buffer_;
};

class LayeredDecoder final : public ContentDecoder {
 public:
  explicit LayeredDecoder(const std::vector<Coding>& codings) {
    Source* source = &input_;
    for (auto coding = codings.rbegin(); coding != codings.rend(); ++coding) {
      layers_.push_back(std::make_unique<Layer>(*coding, *source));
      source = layers_.back().get();
    }
  }

  void feed(const std::uint8_t* bytes, std::size_t size) noexcept override {
    input_.feed(bytes, size);
  }
  void keepInput() override { input_.keep(); }
  std::optional<std::size_t> read(std::uint8_t* buffer, std::size_t size) override {
    return layers_.back()->read(buffer, size);
  }
  bool isComplete() const noexcept override { return layers_.back()->isComplete(); }

 private:
  Input input_;
  std::vector<std::unique_ptr<Layer>> layers_;
};

/// More layers than anybody needs: their product is what a hostile server wants.
class TooManyCodings final : public ContentDecoder {
 public:
  void feed(const std::uint8_t*, std::size_t) noexcept override {}
  void keepInput() override {}
  std::optional<std::size_t> read(std::uint8_t*, std::size_t) override { return std::nullopt; }
  bool isComplete() const noexcept override { return false; }
};

}  // namespace

std::unique_ptr<ContentDecoder> ContentDecoder::forCodings(std::string_view contentEncoding) {
  constexpr std::size_t mostLayers = 5;
  std::vector<Coding> codings;
  for (const auto name : listItems(contentEncoding)) {
    if (equalsIgnoringCase(name, "gzip") || equalsIgnoringCase(name, "x-gzip")) {
      codings.push_back(Coding::gzip);
    } else if (equalsIgnoringCase(name, "deflate")) {
      codings.push_back(Coding::deflate);
    } else if (!equalsIgnoringCase(name, "identity")) {
      return nullptr;
    }
  }
  if (codings.empty()) return nullptr;
  if (codings.size() > mostLayers) return std::make_unique<TooManyCodings>();
  return std::make_unique<LayeredDecoder>(codings);
}

}  // namespace tarn::detail

#pragma once
#include <Support/ScriptedServer.hpp>

#include <cstddef>
#include <string>

// Private to the scripted server: takes requests out of the stream of bytes that a client sends.
namespace tarn::test::detail {

/// Parses with leave: whatever a client sends as head is recorded, not judged.
class RequestReader {
 public:
  enum class Progress { needsMore, done, failed };

  /// More bytes from the client.
  void feed(const char* bytes, std::size_t size) { buffer_.append(bytes, size); }
  bool hasBytes() const { return !buffer_.empty(); }

  /// Takes one head from the buffer into `request`; `failed` when it is longer than any head may
  /// be.
  Progress takeHead(ReceivedRequest& request);
  /// Moves what there is of the body into `request`; `failed` on broken chunked coding.
  Progress takeBody(ReceivedRequest& request);
  bool bodyDone() const { return framing_ == Framing::none; }

 private:
  enum class Framing { none, length, chunked };
  void chooseFraming(const ReceivedRequest& request);
  Progress takeChunks(std::string& body);

  std::string buffer_;
  std::size_t searched_ = 0;  // of the buffer, for the end of the head
  Framing framing_ = Framing::none;
  std::size_t rest_ = 0;
};

/// Whether the connection ends after the answer to this request.
bool asksToClose(const ReceivedRequest& request);

}  // namespace tarn::test::detail

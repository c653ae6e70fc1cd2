#pragma once
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {

/// Header fields in the order and the letter case in which they travel.
using HeaderList = std::vector<std::pair<std::string, std::string>>;

/// What the scripted server does on one connection, step after step; a value, built by chaining.
///
/// A script that ends without closing leaves the connection open for the next request, unless the
/// request asked for `Connection: close`. A client that goes away ends `stall`, `delay` and `drip`
/// at once.
class Script {
 public:
  /// A script that starts when the head of the request has been read; the body waits for `readBody`
  /// or for the end.
  static Script afterHead();

  /// Bytes exactly as given.
  Script& send(std::string bytes);
  /// A whole response. Content-Length is added unless `headers` has a length or a transfer coding,
  /// or the status has no body; the body is left out in an answer to HEAD.
  Script& respond(int status, HeaderList headers = {}, std::string body = {});
  /// Status line, fields as given and the blank line: nothing is added.
  Script& head(int status, HeaderList headers = {});
  /// An interim answer (100 to 199).
  Script& interim(int status, HeaderList headers = {});
  /// A whole response in chunked coding, one chunk a piece, with trailers.
  Script& respondChunked(int status, HeaderList headers, const std::vector<std::string>& pieces,
                         const HeaderList& trailers = {});
  /// One chunk of chunked coding; an empty piece sends nothing.
  Script& chunk(const std::string& piece);
  /// The end of a chunked body.
  Script& lastChunk(const HeaderList& trailers = {});
  /// `bytes` in pieces of `pieceSize`, with a pause of `interval` between two pieces.
  Script& drip(std::string bytes, std::size_t pieceSize, std::chrono::milliseconds interval);
  /// `bytes` again and again, without holding them all in memory.
  Script& repeat(std::string bytes, std::uint64_t times);
  /// `bytes` for as long as the client takes them.
  Script& repeatForever(std::string bytes);
  /// Goes on after `time`, by the server's own timer.
  Script& delay(std::chrono::milliseconds time);
  /// Does nothing until `ScriptedServer::releaseStalls`, or ends the connection when the client has
  /// gone.
  Script& stall();
  /// Reads the rest of the request's body; only of use in a script `afterHead`.
  Script& readBody();
  /// Waits until the client has sent something; only of use in a script of
  /// `ScriptedServer::onConnect`.
  Script& awaitInput();
  /// Ends the server's direction only (FIN); the script goes on.
  Script& halfClose();
  /// Closes properly: close_notify first under TLS, then FIN.
  Script& close();
  /// FIN without close_notify; over plain TCP the same as `close`.
  Script& truncate();
  /// Closes with RST.
  Script& reset();

  enum class Action {
    send,
    respond,
    drip,
    repeat,
    delay,
    stall,
    readBody,
    awaitInput,
    halfClose,
    close,
    truncate,
    reset
  };
  struct Step {
    Action action;
    std::shared_ptr<const std::string> bytes =
        nullptr;  // shared: a script is copied for each of thousands of requests
    std::shared_ptr<const std::string> body = nullptr;  // respond: what HEAD leaves out
    std::size_t pieceSize = 0;
    std::uint64_t times = 0;  // repeat: 0 is for ever
    std::chrono::milliseconds interval{0};
  };
  const std::vector<Step>& steps() const { return steps_; }
  bool startsAfterHead() const { return startsAfterHead_; }

 private:
  Script& add(Step step);

  std::vector<Step> steps_;
  bool startsAfterHead_ = false;
};

}  // namespace tarn::test

#include <Support/Script.hpp>

#include <algorithm>
#include <array>
#include <strings.h>

namespace tarn::test {
namespace {

std::string reasonPhrase(int status) {
  constexpr std::array<std::pair<int, const char*>, 20> phrases{{{100, "Continue"},
                                                                 {101, "Switching Protocols"},
                                                                 {103, "Early Hints"},
                                                                 {200, "OK"},
                                                                 {201, "Created"},
                                                                 {202, "Accepted"},
                                                                 {204, "No Content"},
                                                                 {206, "Partial Content"},
                                                                 {301, "Moved Permanently"},
                                                                 {302, "Found"},
                                                                 {303, "See Other"},
                                                                 {304, "Not Modified"},
                                                                 {307, "Temporary Redirect"},
                                                                 {308, "Permanent Redirect"},
                                                                 {400, "Bad Request"},
                                                                 {401, "Unauthorized"},
                                                                 {403, "Forbidden"},
                                                                 {404, "Not Found"},
                                                                 {500, "Internal Server Error"},
                                                                 {503, "Service Unavailable"}}};
  for (const auto& [known, phrase] : phrases) {
    if (known == status) return phrase;
  }
  return "Status";
}

void appendFields(std::string& text, const HeaderList& headers) {
  for (const auto& [name, value] : headers) text += name + ": " + value + "\r\n";
}

std::string headText(int status, const HeaderList& headers) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + "\r\n";
  appendFields(text, headers);
  return text + "\r\n";
}

bool statesLength(const HeaderList& headers) {
  return std::any_of(headers.begin(), headers.end(), [](const auto& field) {
    return ::strcasecmp(field.first.c_str(), "Content-Length") == 0 ||
           ::strcasecmp(field.first.c_str(), "Transfer-Encoding") == 0;
  });
}

bool hasBody(int status) { return status >= 200 && status != 204 && status != 304; }

std::string chunkText(const std::string& piece) {
  constexpr char digits[] = "0123456789abcdef";
  std::string size;
  for (std::size_t rest = piece.size(); rest > 0; rest /= 16) size.insert(0, 1, digits[rest % 16]);
  return size + "\r\n" + piece + "\r\n";
}

std::shared_ptr<const std::string> shared(std::string bytes) {
  return std::make_shared<const std::string>(std::move(bytes));
}

}  // namespace

Script Script::afterHead() {
  Script script;
  script.startsAfterHead_ = true;
  return script;
}

Script& Script::add(Step step) {
  steps_.push_back(std::move(step));
  return *this;
}

Script& Script::send(std::string bytes) {
  return add({.action = Action::send, .bytes = shared(std::move(bytes))});
}

Script& Script::respond(int status, HeaderList headers, std::string body) {
  if (hasBody(status) && !statesLength(headers)) {
    headers.emplace_back("Content-Length", std::to_string(body.size()));
  }
  return add({.action = Action::respond,
              .bytes = shared(headText(status, headers)),
              .body = shared(std::move(body))});
}

Script& Script::head(int status, HeaderList headers) { return send(headText(status, headers)); }
Script& Script::interim(int status, HeaderList headers) { return send(headText(status, headers)); }

Script& Script::respondChunked(int status, HeaderList headers,
                               const std::vector<std::string>& pieces, const HeaderList& trailers) {
  headers.emplace_back("Transfer-Encoding", "chunked");
  head(status, std::move(headers));
  for (const std::string& piece : pieces) chunk(piece);
  return lastChunk(trailers);
}

Script& Script::chunk(const std::string& piece) {
  return piece.empty() ? *this : send(chunkText(piece));
}

Script& Script::lastChunk(const HeaderList& trailers) {
  std::string text = "0\r\n";
  appendFields(text, trailers);
  return send(text + "\r\n");
}

Script& Script::drip(std::string bytes, std::size_t pieceSize, std::chrono::milliseconds interval) {
  return add({.action = Action::drip,
              .bytes = shared(std::move(bytes)),
              .pieceSize = std::max<std::size_t>(pieceSize, 1),
              .interval = interval});
}

Script& Script::repeat(std::string bytes, std::uint64_t times) {
  if (bytes.empty() || times == 0) return *this;
  return add({.action = Action::repeat, .bytes = shared(std::move(bytes)), .times = times});
}

Script& Script::repeatForever(std::string bytes) {
  if (bytes.empty()) return *this;
  return add({.action = Action::repeat, .bytes = shared(std::move(bytes)), .times = 0});
}

Script& Script::delay(std::chrono::milliseconds time) {
  return add({.action = Action::delay, .interval = time});
}

Script& Script::stall() { return add({.action = Action::stall}); }
Script& Script::readBody() { return add({.action = Action::readBody}); }
Script& Script::awaitInput() { return add({.action = Action::awaitInput}); }
Script& Script::halfClose() { return add({.action = Action::halfClose}); }
Script& Script::close() { return add({.action = Action::close}); }
Script& Script::truncate() { return add({.action = Action::truncate}); }
Script& Script::reset() { return add({.action = Action::reset}); }

}  // namespace tarn::test

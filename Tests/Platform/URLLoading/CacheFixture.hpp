#pragma once
#include <Platform/URLLoading/Detail/WallClock.hpp>
#include <Platform/URLLoading/LoadingFixture.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>

namespace tarn::test {

/// Takes the place of the calendar's clock while it exists: time passes when the test says so. One
/// at a time.
class ManualWallClock {
 public:
  ManualWallClock() {
    seconds = 1'767'225'600;  // the first second of 2026
    detail::setWallClock(&now);
  }
  ~ManualWallClock() { detail::setWallClock(nullptr); }
  ManualWallClock(const ManualWallClock&) = delete;
  ManualWallClock& operator=(const ManualWallClock&) = delete;

  static detail::WallTime now() noexcept {
    return detail::WallTime(std::chrono::seconds(seconds.load()));
  }
  void advance(std::int64_t by) { seconds += by; }

  /// So many seconds from now, by default as "Sun, 06 Nov 1994 08:49:37 GMT".
  static std::string date(std::int64_t offset = 0,
                          const char* format = "%a, %d %b %Y %H:%M:%S GMT") {
    const std::time_t time = seconds + offset;
    std::tm parts{};
    gmtime_r(&time, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
  }

 private:
  static inline std::atomic<std::int64_t> seconds{0};
};

/// A server, a session and a clock: loads of one path differ in their bodies, "1", "2" and so on,
/// and a question whether an answer still holds is answered 304.
struct CacheCase {
  CacheCase() { serve(200, {}); }

  /// What the server answers from now on; a Date is added unless there is one.
  void serve(int status, HeaderList fields, bool confirms = true) {
    server.setHandler([=, count = 0](const ReceivedRequest& request) mutable {
      auto all = fields;
      const bool dated =
          std::any_of(all.begin(), all.end(), [](auto& field) { return field.first == "Date"; });
      if (!dated) all.emplace_back("Date", ManualWallClock::date());
      const bool asked = request.header("If-None-Match") || request.header("If-Modified-Since");
      if (asked && confirms) return Script().respond(304, all);
      return Script().respond(status, all, std::to_string(++count));
    });
  }

  URLRequest request(const URLRequest::HeaderFields& fields = {},
                     const std::string& path = "/") const {
    auto result = RecordedSession::request(server.url(path));
    result.setAllHTTPHeaderFields(fields);
    return result;
  }
  URLRequest request(URLRequest::CachePolicy policy) const {
    auto result = request();
    result.setCachePolicy(policy);
    return result;
  }
  Loaded load(const URLRequest& request) { return session.load(request); }
  Loaded load() { return session.load(request()); }

  ManualWallClock clock;
  ScriptedServer server;
  RecordedSession session;
};

struct CacheFixture : testing::Test, CacheCase {};

}  // namespace tarn::test

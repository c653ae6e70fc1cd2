#pragma once

#include <Platform/Types/Data.hpp>
#include <Platform/URLLoading/Detail/CacheControl.hpp>
#include <Platform/URLLoading/Detail/WallClock.hpp>
#include <Platform/URLLoading/HTTPURLResponse.hpp>
#include <Platform/URLLoading/URLRequest.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::detail {

/// The Cache-Control of a request; where it has none, Pragma stands in (RFC 9111, 5.4).
CacheControl cacheControlOf(const URLRequest& request);

/// When a request went out and when its answer began to come.
struct ExchangeTimes {
  WallTime requested;
  WallTime answered;
};

/// One answer to a GET as a cache keeps it: its head and its whole body, both as they were
/// delivered, and what the body goes with (RFC 9111, 3 and 4).
class StoredAnswer {
 public:
  using Head = std::shared_ptr<const HTTPURLResponse>;

  StoredAnswer(const URLRequest& request, Head head, ExchangeTimes times, Data body = {});
  /// Where the body has been yet to come.
  void setBody(Data body) noexcept { body_ = std::move(body); }
  /// The same body with the fields that another answer tells anew (RFC 9111, 3.2).
  StoredAnswer renewed(const URLRequest& request, const HTTPHeaderFields& fields,
                       ExchangeTimes times) const;

  /// Whether a private cache may keep the answer. Beside what may not be kept by itself: part of a
  /// body, a question for a password, an answer that varies by what is added to the request only
  /// when it is sent.
  bool mayBeKept() const noexcept { return mayBeKept_; }
  /// Whether it was selected by the same values of the fields that it varies by: those that it
  /// names, and Authorization always.
  bool answers(const URLRequest& request) const;
  WallTime receivedAt() const noexcept { return times_.answered; }
  /// Bytes of body, header fields and what selects it, and a share for what else it takes.
  std::size_t cost() const noexcept { return headCost_ + body_.size(); }

  /// Whether it may be used without asking the server.
  bool isUsable(const CacheControl& request, WallTime now) const noexcept;
  std::chrono::seconds age(WallTime now) const noexcept;

  const HTTPURLResponse& head() const noexcept { return *head_; }
  /// The head for another request, with that one's address and, where it is given, the age of the
  /// answer, without what it said of its connection.
  Head headFor(const URL& url, std::optional<std::chrono::seconds> age) const;
  const Data& body() const noexcept { return body_; }

  /// Whether a server can be asked if the answer still holds, by one or both of these.
  bool canBeAsked() const noexcept { return canBeAsked_; }
  std::optional<std::string_view> entityTag() const noexcept { return field("ETag"); }
  std::optional<std::string_view> lastModified() const noexcept { return field("Last-Modified"); }

 private:
  struct Fields;
  using Selector = std::pair<std::string, std::optional<std::string>>;

  std::optional<std::string_view> field(std::string_view name) const noexcept {
    return head_->allHeaderFields().value(name);
  }
  WallTime dateOr(std::optional<std::string_view> text, WallTime otherwise) const noexcept;
  WallTime::duration initialAge() const noexcept;
  bool mayBeKept(const URLRequest& request, const Fields& fields) const;
  std::chrono::seconds lifetime(const Fields& fields) const noexcept;
  std::size_t countCost() const noexcept;

  Head head_;
  Data body_;
  ExchangeTimes times_;
  CacheControl control_;
  // What it varies by, as the request had it.
  std::optional<std::string> authorization_;
  std::vector<Selector> selectors_;
  std::chrono::seconds lifetime_{0};
  std::size_t headCost_ = 0;  // of all but the body
  bool mayBeKept_ = false;
  bool canBeAsked_ = false;
};

}  // namespace tarn::detail

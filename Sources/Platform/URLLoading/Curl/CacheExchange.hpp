#pragma once

#include <Platform/URLLoading/Curl/HandlePool.hpp>
#include <Platform/URLLoading/Detail/ResponseCache.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace tarn::detail {

/// The part of a session's cache in one transfer: answers a request from the cache, has the server
/// asked whether a kept answer still holds, and keeps the answer that comes.
///
/// `begin` starts over for each request of the transfer. On the loop thread only.
class CacheExchange {
 public:
  /// One that does not take part, as a download to a file, still takes answers out of the cache
  /// when it changes what is at their address.
  CacheExchange(ResponseCache& cache, URLRequest::CachePolicy usualPolicy, bool takesPart) noexcept
      : cache_(cache), usualPolicy_(usualPolicy), takesPart_(takesPart) {}

  /// Looks the request up. True: the kept answer is to be taken, and nothing sent. Throws
  /// URLError::resourceUnavailable where there is none and nothing may be sent.
  bool begin(const URLRequest& request, const Origin& origin, bool sendsFile);
  /// The request goes out: adds what asks whether the kept answer still holds.
  void send(TransferHandle& handle);
  /// The head of the answer has come. True: it says that the kept answer holds, which is to be
  /// taken in its place. `endIsKnown`: a cut body will not be taken for a whole one.
  bool answerArrived(const URLRequest& request, std::shared_ptr<const HTTPURLResponse> head,
                     bool endIsKnown);
  /// The next bytes of the body are about to be handed over; they are not the last.
  void bodyPart(const URLRequest& request, const Data& bytes);
  /// The answer is whole; `rest` are the bytes that have not been handed over.
  void complete(const URLRequest& request, const Data& rest) noexcept;

  /// The kept answer, where it is to be taken.
  std::shared_ptr<const HTTPURLResponse> keptHead(const URL& url) const;
  const Data& keptBody() const noexcept { return kept_->body(); }

 private:
  void answerToChange(const URLRequest& request, const HTTPURLResponse& head);
  void answerToHead(const URLRequest& request, const std::shared_ptr<const HTTPURLResponse>& head);
  void renew(const URLRequest& request, const HTTPURLResponse& head);
  ExchangeTimes times() const noexcept;

  ResponseCache& cache_;
  const URLRequest::CachePolicy usualPolicy_;
  const bool takesPart_;

  // Of the present request.
  bool active_ = false;    // the cache has a part in it
  bool mayStore_ = false;  // as far as the request goes
  bool confirmed_ = false;
  std::string key_;            // of what the cache has a part in
  ResponseCache::Entry kept_;  // to be taken, at once or when the server has confirmed it
  WallTime requested_;
  WallTime answered_;
  std::uint64_t changes_ = 0;
  std::shared_ptr<StoredAnswer> gathering_;  // the answer that will be kept, without its body
  Data gathered_;
};

}  // namespace tarn::detail

#include <Platform/Types/FatalError.hpp>
#include <Platform/Types/URLError.hpp>
#include <Platform/URLLoading/Curl/CacheExchange.hpp>
#include <Platform/URLLoading/Detail/Origin.hpp>

#include <algorithm>
#include <array>
#include <string>

namespace tarn::detail {

namespace {

using Policy = URLRequest::CachePolicy;

// Who asks for a part or sets conditions deals with the answer himself.
bool hasConditions(const URLRequest& request) noexcept {
  constexpr std::array<std::string_view, 6> names{
      "If-Match", "If-Modified-Since", "If-None-Match", "If-Range", "If-Unmodified-Since", "Range"};
  const auto& fields = request.allHTTPHeaderFields();
  return std::any_of(fields.begin(), fields.end(), [&](const auto& field) {
    return std::any_of(names.begin(), names.end(),
                       [&](auto name) { return equalsIgnoringCase(name, field.first); });
  });
}

bool isSafe(const std::string& method) noexcept {
  return method == "GET" || method == "HEAD" || method == "OPTIONS" || method == "TRACE";
}

// What both answers say, they say alike (RFC 9111, 4.3.5).
bool describesSame(const StoredAnswer& kept, const HTTPURLResponse& head) noexcept {
  constexpr std::array<std::string_view, 3> names{"ETag", "Last-Modified", "Content-Length"};
  return std::all_of(names.begin(), names.end(), [&](auto name) {
    const auto value = head.allHeaderFields().value(name);
    return !value || value == kept.head().allHeaderFields().value(name);
  });
}

}  // namespace

bool CacheExchange::begin(const URLRequest& request, const Origin& origin, bool sendsFile) {
  active_ = mayStore_ = confirmed_ = false;
  kept_.reset();
  gathering_.reset();
  gathered_ = Data();
  const auto& method = request.httpMethod();
  const auto& body = request.httpBody();
  const bool isDefault = request.cachePolicy() == Policy::useProtocolCachePolicy;
  const auto policy = isDefault ? usualPolicy_ : request.cachePolicy();
  active_ = takesPart_ && !cache_.isOff() && (method == "GET" || method == "HEAD") && !sendsFile &&
            (!body || body->empty()) && !hasConditions(request);
  bool usable = false;
  bool mustNotSend = policy == Policy::returnCacheDataDontLoad;
  if (active_) {
    key_ = ResponseCache::keyOf(origin, request.url());
    const auto control = cacheControlOf(request);
    mayStore_ = method == "GET" && !control.noStore;
    if (policy != Policy::reloadIgnoringLocalCacheData) kept_ = cache_.find(key_, request);
    if (policy == Policy::useProtocolCachePolicy) {
      usable = kept_ && kept_->isUsable(control, wallTime());
    } else {
      usable = kept_ && policy != Policy::reloadRevalidatingCacheData;
    }
    mustNotSend = mustNotSend || control.onlyIfCached;
    const bool canAsk = kept_ && !control.noStore && kept_->canBeAsked();
    if (!usable && !canAsk) kept_.reset();
  }
  if (mustNotSend && !usable) {
    throw URLError(URLError::resourceUnavailable, "The cache has no answer to the request.",
                   request.url().redacted());
  }
  return usable;
}

void CacheExchange::send(TransferHandle& handle) {
  if (!active_) return;
  requested_ = wallTime();
  changes_ = cache_.changes();
  if (!kept_) return;
  if (const auto tag = kept_->entityTag()) {
    handle.addField("If-None-Match: " + std::string(*tag));
  }
  if (const auto modified = kept_->lastModified()) {
    handle.addField("If-Modified-Since: " + std::string(*modified));
  }
}

bool CacheExchange::answerArrived(const URLRequest& request,
                                  std::shared_ptr<const HTTPURLResponse> head, bool endIsKnown) {
  if (!isSafe(request.httpMethod())) answerToChange(request, *head);
  if (!active_) return false;
  answered_ = wallTime();
  if (kept_ && head->statusCode() == 304) {
    renew(request, *head);
    return confirmed_ = true;
  }
  kept_.reset();
  if (!mayStore_) {
    answerToHead(request, head);
    return false;
  }
  const auto length = head->expectedContentLength();
  const bool fits = length < 0 || static_cast<std::size_t>(length) <= cache_.mostCost();
  if (endIsKnown && fits) gathering_ = std::make_shared<StoredAnswer>(request, head, times());
  if (gathering_ && !gathering_->mayBeKept()) gathering_.reset();
  if (!gathering_ && head->statusCode() < 300) cache_.forget(key_, request);  // it is out of date
  return false;
}

// RFC 9111, 4.4.
void CacheExchange::answerToChange(const URLRequest& request, const HTTPURLResponse& head) {
  if (head.statusCode() < 200 || head.statusCode() >= 400) return;
  const auto origin = Origin::of(request.url()).value_or(Origin());
  cache_.invalidate(ResponseCache::keyOf(origin, request.url()));
  for (const auto name : {"Location", "Content-Location"}) {
    const auto address = head.allHeaderFields().value(name);
    const auto url = address ? URL::parse(*address, request.url()) : std::nullopt;
    if (url && Origin::of(*url) == origin) cache_.invalidate(ResponseCache::keyOf(origin, *url));
  }
}

void CacheExchange::answerToHead(const URLRequest& request,
                                 const std::shared_ptr<const HTTPURLResponse>& head) {
  if (request.httpMethod() != "HEAD" || head->statusCode() != 200) return;
  if (cacheControlOf(request).noStore) return;
  kept_ = cache_.find(key_, request);
  if (!kept_) return;
  if (describesSame(*kept_, *head) && StoredAnswer(request, head, times()).mayBeKept()) {
    renew(request, *head);
  } else {
    cache_.forget(key_, request);
  }
  kept_.reset();
}

void CacheExchange::renew(const URLRequest& request, const HTTPURLResponse& head) {
  auto renewed = std::make_shared<const StoredAnswer>(
      kept_->renewed(request, head.allHeaderFields(), times()));
  if (renewed->mayBeKept()) {
    cache_.renew(key_, kept_, renewed);
  } else {
    cache_.forget(key_, request);
  }
  kept_ = std::move(renewed);
}

void CacheExchange::bodyPart(const URLRequest& request, const Data& bytes) {
  if (!gathering_) return;
  if (gathered_.size() + bytes.size() > cache_.mostCost()) {
    gathering_.reset();
    gathered_ = Data();
    return cache_.forget(key_, request);
  }
  // Copied, not shared: who gets the bytes would then have to copy them all to add what comes next.
  const auto length = gathering_->head().expectedContentLength();
  if (gathered_.empty() && length > 0) gathered_.reserve(static_cast<std::size_t>(length));
  gathered_.append(bytes.bytes(), bytes.size());
}

void CacheExchange::complete(const URLRequest& request, const Data& rest) noexcept {
  auto answer = std::exchange(gathering_, nullptr);
  if (!answer || changes_ != cache_.changes()) return;
  try {
    gathered_.append(rest);  // a body that came in one piece is shared
    answer->setBody(std::exchange(gathered_, Data()));
    cache_.store(key_, request, std::move(answer));
  } catch (...) {
    // The load has its answer all the same.
    reportUncaughtError(Error::current(), "URL loading");
  }
}

// That it is old is not said of an answer that the server has just confirmed (RFC 9111, 5.1).
std::shared_ptr<const HTTPURLResponse> CacheExchange::keptHead(const URL& url) const {
  return kept_->headFor(url, confirmed_ ? std::nullopt : std::optional(kept_->age(wallTime())));
}

ExchangeTimes CacheExchange::times() const noexcept { return {requested_, answered_}; }

}  // namespace tarn::detail

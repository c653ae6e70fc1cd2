#include <Platform/URLLoading/Detail/FieldValues.hpp>
#include <Platform/URLLoading/Detail/HTTPDate.hpp>
#include <Platform/URLLoading/Detail/StoredAnswer.hpp>

#include <algorithm>
#include <array>
#include <iterator>

namespace tarn::detail {

namespace {

using std::chrono::seconds;

// Which may be kept, for a while that the cache makes up, when an answer says nothing of it (RFC
// 9110, 15.1).
bool isHeuristicallyCacheable(int status) noexcept {
  constexpr std::array<int, 11> statuses{200, 203, 204, 300, 301, 308, 404, 405, 410, 414, 501};
  return std::find(statuses.begin(), statuses.end(), status) != statuses.end();
}

bool isNeverKept(int status) noexcept {
  constexpr std::array<int, 5> statuses{206, 304, 401, 407, 416};
  return status < 200 || std::find(statuses.begin(), statuses.end(), status) != statuses.end();
}

// Cookies and the answers to challenges are not seen in the request.
bool isAddedOnSending(std::string_view name, const URLRequest& request) noexcept {
  return equalsIgnoringCase(name, "Cookie") ||
         (equalsIgnoringCase(name, "Authorization") && !request.value(name));
}

// What fields that differ in white space only have in common.
std::optional<std::string> selectingValue(const URLRequest& request, std::string_view name) {
  auto value = request.value(name);
  if (!value) return std::nullopt;
  std::string result;
  while (const auto item = takeListItem(*value)) result.append(*item).push_back(',');
  return result;
}

// What the fields say of one connection, which is not kept (RFC 9111, 3.1).
class ConnectionFields {
 public:
  explicit ConnectionFields(const HTTPHeaderFields& fields)
      : nominated_(listItems(fields.value("Connection").value_or(""))) {}

  bool contains(std::string_view name) const noexcept {
    constexpr std::array<std::string_view, 10> names{"Connection",
                                                     "Keep-Alive",
                                                     "Proxy-Authenticate",
                                                     "Proxy-Authentication-Info",
                                                     "Proxy-Authorization",
                                                     "Proxy-Connection",
                                                     "TE",
                                                     "Trailer",
                                                     "Transfer-Encoding",
                                                     "Upgrade"};
    const auto isIt = [name](auto own) { return equalsIgnoringCase(name, own); };
    return std::any_of(names.begin(), names.end(), isIt) ||
           std::any_of(nominated_.begin(), nominated_.end(), isIt);
  }

 private:
  std::vector<std::string_view> nominated_;
};

// By which the body that is kept had been framed and decoded.
bool describesBody(std::string_view name) noexcept {
  return equalsIgnoringCase(name, "Content-Encoding") ||
         equalsIgnoringCase(name, "Content-Length") || equalsIgnoringCase(name, "Content-Range");
}

StoredAnswer::Head withFields(const HTTPURLResponse& head, const URL& url,
                              HTTPHeaderFields fields) {
  return std::make_shared<const HTTPURLResponse>(url, head.statusCode(), head.httpVersion(),
                                                 std::move(fields), head.expectedContentLength());
}

HTTPHeaderFields withoutConnectionFields(const HTTPHeaderFields& fields) {
  const ConnectionFields ofConnection(fields);
  std::vector<HTTPHeaderFields::value_type> kept;
  std::copy_if(fields.begin(), fields.end(), std::back_inserter(kept),
               [&](const auto& field) { return !ofConnection.contains(field.first); });
  return HTTPHeaderFields(kept);
}

bool namesAnyOf(std::string_view list, const HTTPHeaderFields& fields) noexcept {
  while (const auto name = takeListItem(list)) {
    if (fields.contains(*name)) return true;
  }
  return false;
}

}  // namespace

// What the fields of an answer say to a cache, in one look through them.
struct StoredAnswer::Fields {
  explicit Fields(const HTTPHeaderFields& fields) noexcept {
    for (const auto& field : fields) {
      const auto take = [&field](std::string_view name, std::optional<std::string_view>& place) {
        if (equalsIgnoringCase(field.first, name)) place = field.second;
      };
      take("Cache-Control", cacheControl);
      take("Connection", connection);
      take("Date", date);
      take("ETag", entityTag);
      take("Expires", expires);
      take("Last-Modified", lastModified);
      take("Vary", vary);
    }
  }

  std::optional<std::string_view> cacheControl;
  std::optional<std::string_view> connection;
  std::optional<std::string_view> date;
  std::optional<std::string_view> entityTag;
  std::optional<std::string_view> expires;
  std::optional<std::string_view> lastModified;
  std::optional<std::string_view> vary;
};

CacheControl cacheControlOf(const URLRequest& request) {
  if (const auto value = request.value("Cache-Control")) return CacheControl::parse(*value);
  CacheControl result;
  result.noCache = CacheControl::parse(request.value("Pragma").value_or("")).noCache;
  return result;
}

StoredAnswer::StoredAnswer(const URLRequest& request, Head head, ExchangeTimes times, Data body)
    : head_(std::move(head)), body_(std::move(body)), times_(times) {
  Fields fields(head_->allHeaderFields());
  control_ = CacheControl::parse(fields.cacheControl.value_or(""));
  mayBeKept_ = mayBeKept(request, fields);
  // What it says of the connection by itself is left out when the answer is served. What else it
  // names as such counts for nothing.
  if (namesAnyOf(fields.connection.value_or(""), head_->allHeaderFields())) {
    head_ = withFields(*head_, head_->url(), withoutConnectionFields(head_->allHeaderFields()));
    fields = Fields(head_->allHeaderFields());
    control_ = CacheControl::parse(fields.cacheControl.value_or(""));
  }
  authorization_ = selectingValue(request, "Authorization");
  auto vary = fields.vary.value_or("");
  while (const auto name = takeListItem(vary)) {
    selectors_.emplace_back(*name, selectingValue(request, *name));
  }
  lifetime_ = lifetime(fields);
  canBeAsked_ = fields.entityTag || fields.lastModified;
  headCost_ = countCost();
}

bool StoredAnswer::mayBeKept(const URLRequest& request, const Fields& fields) const {
  const int status = head_->statusCode();
  if (isNeverKept(status)) return false;
  if (control_.noStore) return false;
  const bool allowed = control_.maxAge || control_.isPublic || control_.isPrivate ||
                       fields.expires || isHeuristicallyCacheable(status);
  if (!allowed) return false;
  auto vary = fields.vary.value_or("");
  while (const auto name = takeListItem(vary)) {
    if (*name == "*" || isAddedOnSending(*name, request)) return false;
  }
  return true;
}

StoredAnswer StoredAnswer::renewed(const URLRequest& request, const HTTPHeaderFields& fields,
                                   ExchangeTimes times) const {
  const ConnectionFields ofConnection(fields);
  HTTPHeaderFields merged = withoutConnectionFields(head_->allHeaderFields());
  merged.remove("Age");  // of the former answer
  for (const auto& [name, value] : fields) {
    if (!ofConnection.contains(name) && !describesBody(name)) merged.set(name, value);
  }
  return {request, withFields(*head_, head_->url(), std::move(merged)), times, body_};
}

bool StoredAnswer::answers(const URLRequest& request) const {
  const auto isSame = [&request](const Selector& selector) {
    return selectingValue(request, selector.first) == selector.second;
  };
  return selectingValue(request, "Authorization") == authorization_ &&
         std::all_of(selectors_.begin(), selectors_.end(), isSame);
}

bool StoredAnswer::isUsable(const CacheControl& request, WallTime now) const noexcept {
  if (request.noCache || control_.noCache) return false;
  if (lifetime_ <= seconds(0) && !request.maxStale) return false;  // as most are
  const auto present = age(now);
  if (request.maxAge && present >= *request.maxAge) return false;
  const auto left = lifetime_ - present;
  if (left > seconds(0)) return !request.minFresh || left >= *request.minFresh;
  return request.maxStale && -left <= *request.maxStale && !request.minFresh &&
         !control_.mustRevalidate;
}

seconds StoredAnswer::age(WallTime now) const noexcept {
  const auto resident = std::max(now - times_.answered, WallTime::duration(0));
  return std::chrono::floor<seconds>(initialAge() + resident);
}

StoredAnswer::Head StoredAnswer::headFor(const URL& url, std::optional<seconds> age) const {
  HTTPHeaderFields fields = withoutConnectionFields(head_->allHeaderFields());
  if (age) fields.set("Age", std::to_string(age->count()));
  return withFields(*head_, url, std::move(fields));
}

WallTime StoredAnswer::dateOr(std::optional<std::string_view> text,
                              WallTime otherwise) const noexcept {
  return parseHTTPDate(text.value_or(""), times_.answered).value_or(otherwise);
}

// How old the answer was when it came: what the caches before this one say, and what its date says,
// whichever is more (RFC 9111, 4.2.3).
WallTime::duration StoredAnswer::initialAge() const noexcept {
  constexpr WallTime::duration none{0};
  const auto text = field("Age").value_or("");
  const auto told = parseDeltaSeconds(trimmed(text.substr(0, text.find(',')))).value_or(seconds(0));
  const auto delay = std::max(times_.answered - times_.requested, none);
  const auto apparent = times_.answered - dateOr(field("Date"), times_.answered);
  return std::max(apparent, told + delay);
}

// RFC 9111, 4.2.1 and 4.2.2.
seconds StoredAnswer::lifetime(const Fields& fields) const noexcept {
  if (control_.maxAge) return *control_.maxAge;
  if (!fields.expires && !fields.lastModified) return seconds(0);
  const auto date = dateOr(fields.date, times_.answered);
  const auto between = [](WallTime first, WallTime last) {
    return std::max(std::chrono::floor<seconds>(last - first), seconds(0));
  };
  if (fields.expires) return between(date, dateOr(fields.expires, date));
  if (!control_.isPublic && !isHeuristicallyCacheable(head_->statusCode())) return seconds(0);
  constexpr int share = 10;
  constexpr seconds most = std::chrono::days(1);
  return std::min(between(dateOr(fields.lastModified, date), date) / share, most);
}

std::size_t StoredAnswer::countCost() const noexcept {
  constexpr std::size_t ownShare = 1024;  // the objects themselves and their places in the cache
  std::size_t cost = ownShare + (authorization_ ? authorization_->size() : 0);
  for (const auto& [name, value] : selectors_) cost += name.size() + (value ? value->size() : 0);
  for (const auto& [name, value] : head_->allHeaderFields()) cost += name.size() + value.size();
  return cost;
}

}  // namespace tarn::detail

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
  const auto value = request.value(name);
  if (!value) return std::nullopt;
  std::string result;
  for (const auto item : listItems(*value)) result.append(item).push_back(',');
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

// The rest is left out when the answer is served: what it says of the connection by itself counts
// for nothing else.
StoredAnswer::Head withoutNominatedFields(StoredAnswer::Head head) {
  const auto& fields = head->allHeaderFields();
  const auto nominated = listItems(fields.value("Connection").value_or(""));
  const bool any = std::any_of(nominated.begin(), nominated.end(),
                               [&](auto name) { return fields.contains(name); });
  return any ? withFields(*head, head->url(), withoutConnectionFields(fields)) : head;
}

CacheControl cacheControlOf(const HTTPHeaderFields& fields) {
  const auto value = fields.value("Cache-Control");
  return value ? CacheControl::parse(*value) : CacheControl();
}

}  // namespace

CacheControl cacheControlOf(const URLRequest& request) {
  if (const auto value = request.value("Cache-Control")) return CacheControl::parse(*value);
  CacheControl result;
  result.noCache = CacheControl::parse(request.value("Pragma").value_or("")).noCache;
  return result;
}

bool StoredAnswer::mayBeKept(const URLRequest& request, const HTTPURLResponse& head) {
  const auto& fields = head.allHeaderFields();
  if (isNeverKept(head.statusCode())) return false;
  const auto control = cacheControlOf(fields);
  if (control.noStore) return false;
  const bool allowed = control.maxAge || control.isPublic || control.isPrivate ||
                       fields.contains("Expires") || isHeuristicallyCacheable(head.statusCode());
  if (!allowed) return false;
  const auto vary = listItems(fields.value("Vary").value_or(""));
  return std::none_of(vary.begin(), vary.end(), [&](std::string_view name) {
    return name == "*" || isAddedOnSending(name, request);
  });
}

StoredAnswer::StoredAnswer(const URLRequest& request, Head head, Data body, ExchangeTimes times)
    : head_(withoutNominatedFields(std::move(head))),
      body_(std::move(body)),
      times_(times),
      control_(cacheControlOf(head_->allHeaderFields())),
      selectors_(selectorsIn(request)),
      lifetime_(lifetime()),
      cost_(countCost()) {}

StoredAnswer StoredAnswer::renewed(const URLRequest& request, const HTTPHeaderFields& fields,
                                   ExchangeTimes times) const {
  const ConnectionFields ofConnection(fields);
  HTTPHeaderFields merged = withoutConnectionFields(head_->allHeaderFields());
  merged.remove("Age");  // of the former answer
  for (const auto& [name, value] : fields) {
    if (!ofConnection.contains(name) && !describesBody(name)) merged.set(name, value);
  }
  return {request, withFields(*head_, head_->url(), std::move(merged)), body_, times};
}

bool StoredAnswer::answers(const URLRequest& request) const {
  return std::all_of(selectors_.begin(), selectors_.end(), [&](const Selector& selector) {
    return selectingValue(request, selector.first) == selector.second;
  });
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

std::optional<WallTime> StoredAnswer::dateField(std::string_view name) const noexcept {
  return parseHTTPDate(field(name).value_or(""), times_.answered);
}

// How old the answer was when it came: what the caches before this one say, and what its date says,
// whichever is more (RFC 9111, 4.2.3).
WallTime::duration StoredAnswer::initialAge() const noexcept {
  constexpr WallTime::duration none{0};
  const auto text = field("Age").value_or("");
  const auto told = parseDeltaSeconds(trimmed(text.substr(0, text.find(',')))).value_or(seconds(0));
  const auto delay = std::max(times_.answered - times_.requested, none);
  const auto apparent = times_.answered - dateField("Date").value_or(times_.answered);
  return std::max(apparent, told + delay);
}

// RFC 9111, 4.2.1 and 4.2.2.
seconds StoredAnswer::lifetime() const noexcept {
  if (control_.maxAge) return *control_.maxAge;
  if (!field("Expires") && !field("Last-Modified")) return seconds(0);
  const auto date = dateField("Date").value_or(times_.answered);
  const auto between = [](WallTime first, WallTime last) {
    return std::max(std::chrono::floor<seconds>(last - first), seconds(0));
  };
  if (field("Expires")) return between(date, dateField("Expires").value_or(date));
  if (!control_.isPublic && !isHeuristicallyCacheable(head_->statusCode())) return seconds(0);
  constexpr int share = 10;
  constexpr seconds most = std::chrono::days(1);
  return std::min(between(dateField("Last-Modified").value_or(date), date) / share, most);
}

// Servers seldom say that what they show depends on who asks.
std::vector<StoredAnswer::Selector> StoredAnswer::selectorsIn(const URLRequest& request) const {
  std::vector<Selector> selectors;
  selectors.emplace_back("Authorization", selectingValue(request, "Authorization"));
  for (const auto name : listItems(field("Vary").value_or(""))) {
    selectors.emplace_back(name, selectingValue(request, name));
  }
  return selectors;
}

std::size_t StoredAnswer::countCost() const noexcept {
  constexpr std::size_t ownShare = 1024;  // the objects themselves and their places in the cache
  std::size_t cost = ownShare + body_.size();
  for (const auto& [name, value] : selectors_) cost += name.size() + value.value_or("").size();
  for (const auto& [name, value] : head_->allHeaderFields()) cost += name.size() + value.size();
  return cost;
}

}  // namespace tarn::detail

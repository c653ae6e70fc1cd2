#pragma once

#include <Platform/Dispatch/DispatchQueue.hpp>
#include <TarnService/RequestModel/Completion.hpp>
#include <TarnService/RequestModel/HTTPRequestCancelable.hpp>
#include <TarnService/RequestModel/HTTPRequestable.hpp>
#include <TarnService/Responses/HTTPRequestError.hpp>
#include <TarnService/Settings.hpp>

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn {

template <class Self>
struct HTTPMockable;

namespace detail {

std::optional<URL> buildURL(const URL& baseURL, std::string_view path,
                            const HTTPQueryItems& queryItems);
std::string urlString(const URL& baseURL, std::string_view path, const HTTPQueryItems& queryItems);
URLRequest makeURLRequest(URL url, URLRequest::CachePolicy cachePolicy,
                          TimeInterval timeoutInterval, const HTTPMediaType& acceptType,
                          const HTTPHeaders& headers, const HTTPMethod& method);
void setBody(URLRequest& request, Data body, const std::optional<HTTPContentEncoderType>& encoder);

// How a request is sent; defined with the sending pipeline and looked up when a request is sent.
template <class R>
struct SendOperations;
template <class R>
struct PromiseOperations;
template <class R>
struct MockOperations;
// How a request is described for people; defined with the diagnostics, likewise.
template <class R>
struct DebugOperations;
std::string joined(const std::vector<std::string>& parts);

}  // namespace detail

/// Supplies every requirement of HTTPRequestable that has a default; `Self` is the request type
/// that derives from it.
///
/// A request overrides a default by a member of the same name, a const function or, for a property,
/// a stored field. All members are callable from any thread. `Self` has to be the type that is
/// sent: what a type derived from it adds or overrides is not seen. An override of
/// `isAcceptable(HTTPStatus)` hides the overload on a response from callers of the type itself; the
/// library still finds it.
template <class Self>
struct HTTPRequestableDefaults {
  /// A request that declines is dropped without a trace: no task, no log line, no completion.
  bool shouldSend() const { return true; }
  /// That of the producer's session.
  URLRequest::CachePolicy cachePolicy() const {
    return detail::property::taskProducer(self())->session()->configuration().requestCachePolicy;
  }
  /// Seconds without progress until the request fails; that of the producer's session.
  TimeInterval timeoutInterval() const {
    return detail::property::taskProducer(self())
        ->session()
        ->configuration()
        .timeoutIntervalForRequest;
  }
  /// Whether the request waits for a route to its host instead of failing.
  bool shouldWaitForConnectivity() const { return false; }
  HTTPHeaders headers() const { return {}; }
  /// Built from the base URL, the path and the query items; URL::empty() when that gives no URL.
  URL url() const { return _url().value_or(URL::empty()); }
  URL baseURL() const { return URL::empty(); }
  /// Appended to the base URL's path after a slash; an empty path leaves a trailing slash.
  std::string path() const { return {}; }
  HTTPQueryItems queryItems() const { return {}; }
  HTTPMediaType acceptType() const { return HTTPMediaType::any; }
  /// The request as it is sent. Throws HTTPRequestError::malformedURL, InvalidRequestError.
  URLRequest urlRequest() const { return generateRequest(); }
  /// Whether an answer with this status is a success: 200 to 206.
  bool isAcceptable(HTTPStatus statusCode) const { return statusCode.isAcceptableByDefault(); }
  /// Throws to keep the request from being sent.
  void validate() const {}
  /// Throws to turn an answer into a failure.
  template <class Response>
  void process(const Response& /*response*/) const {}

  /// Sends the request: `completion` receives one Response, asynchronously on `completionQueue`,
  /// or, with std::nullopt for a queue, on DispatchQueue::global(). Returns at once. Throws only
  /// what `shouldSend`, the identifier or a copy of the request throws. An HTTPMockable request is
  /// answered with its canned response instead while TarnService::isMocked says so.
  template <class F>
  void send(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    if constexpr (std::derived_from<Self, HTTPMockable<Self>>) {
      if (TarnService::isMocked) {
        return detail::MockOperations<Self>::send(self(), std::move(completionQueue),
                                                  std::forward<F>(completion));
      }
    }
    _send(std::move(completionQueue), std::forward<F>(completion));
  }
  /// Sends the request with the send above, without a queue, and answers at once the ResponseFuture
  /// of its answer: it fails with the response's error, HTTPUnknownError::futureFailedToMapBody for
  /// a success without a body, and FutureError::broken where the request declines to be sent.
  /// Cancelling it cancels an HTTPRequestCancelable request; any other goes on unseen.
  ///
  /// A request type that overrides the send above says `using` of this one, and takes a
  /// `Completion<Response>`, so that its own is the better match.
  template <class R = Self>
  auto send() const {
    detail::requireHTTPRequestable<R>();
    return detail::PromiseOperations<R>::send(self());
  }
  /// A new, pending future of an answer.
  template <class R = Self>
  static auto createFuture() {
    return detail::PromiseOperations<R>::createFuture();
  }
  /// Settles a future of an answer as the response says.
  template <class F, class R = Self>
  static void mark(const F& future, typename R::Response response) {
    detail::PromiseOperations<R>::mark(future, std::move(response));
  }
  /// The send itself, for request types that override send(): the only step on the way that is not
  /// overridable.
  template <class F, class R = Self>
  void _send(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    detail::requireHTTPRequestable<R>();
    static_assert(std::is_convertible_v<F&&, Completion<typename R::Response>>,
                  "The completion is callable with the request's `Response`.");
    detail::SendOperations<R>::send(self(), std::move(completionQueue),
                                    std::forward<F>(completion));
  }
  /// A suspended task of the request's producer that reports to `completion` once it has run.
  template <class R = Self>
  std::shared_ptr<URLSessionTask> createTask(const std::optional<DispatchQueue>& completionQueue,
                                             Completion<typename R::Response> completion) const {
    return detail::SendOperations<R>::createTask(self(), completionQueue, std::move(completion));
  }
  /// Delivers a failure that kept the request from being sent.
  template <class R = Self>
  void report(Error error, const std::optional<DispatchQueue>& queue,
              const Completion<typename R::Response>& completion) const {
    detail::SendOperations<R>::report(self(), std::move(error), queue, completion);
  }

  /// The URL request without a body. Throws HTTPRequestError::malformedURL, InvalidRequestError.
  URLRequest generateRequest() const {
    return detail::makeURLRequest(
        createURL(), detail::property::cachePolicy(self()),
        detail::property::timeoutInterval(self()), detail::property::acceptType(self()),
        detail::property::headers(self()), detail::property::method(self()));
  }
  /// The URL. Throws HTTPRequestError::malformedURL with `urlString()` where there is none.
  URL createURL() const {
    URL url = detail::property::url(self());
    if (url == URL::empty()) throw HTTPRequestError::malformedURL(urlString());
    return url;
  }
  /// The address as a text for people, which need not be a URL.
  std::string urlString() const {
    return detail::urlString(detail::property::baseURL(self()), detail::property::path(self()),
                             detail::property::queryItems(self()));
  }
  std::optional<URL> _url() const {
    return detail::buildURL(detail::property::baseURL(self()), detail::property::path(self()),
                            detail::property::queryItems(self()));
  }
  /// Whether the answer is an HTTP answer whose status the request accepts; null is none.
  bool isAcceptable(const URLResponse* httpResponse) const {
    const auto* http = detail::httpResponse(httpResponse);
    return http && self().isAcceptable(status(*http));
  }
  bool _shouldWaitForConnectivity() const {
    return detail::property::shouldWaitForConnectivity(self());
  }

  /// A shell command that repeats the request, for people to paste: nothing in it is escaped, so
  /// quotes in a field or blanks in a body need a hand, and a body of 80 bytes and more, or one
  /// that is no text, is kept in memory and named by the call that gives it in a debugger. Headers
  /// are in it as they are sent, secrets too. Throws what the request throws when it is generated.
  std::string curlCommand() const { return detail::joined(self()._curlCommand()); }
  /// The command's parts: the method and address, a part for each header field, and the body.
  std::vector<std::string> _curlCommand() const {
    return detail::DebugOperations<Self>::curlCommand(self());
  }
  /// Writes the line of a finished request at debug level, as TarnService::verbosity says. `error`
  /// is the task's own. Never throws.
  template <class Response>
  void printDebugOutput(const std::optional<Error>& error, const Response& tarnResponse,
                        const std::optional<Data>& data) const noexcept {
    detail::DebugOperations<Self>::print(self(), error, tarnResponse, data);
  }

  void insertPendingToTaskManager() const { detail::insertPendingToTaskManager(identifier()); }
  void insertTaskIntoTaskManager(std::shared_ptr<URLSessionTask> task) const {
    detail::insertTaskIntoTaskManager(std::move(task), identifier());
  }
  void checkPendingCancelable() const { detail::checkPendingCancelable(identifier()); }
  void checkAllCanceledStates() const { detail::checkAllCanceledStates(identifier()); }
  void removeFromTaskManager() const { detail::removeFromTaskManager(identifier()); }

 private:
  const Self& self() const noexcept { return static_cast<const Self&>(*this); }
  std::optional<UUID> identifier() const { return detail::cancellationIdentifier(self()); }
};

namespace detail {

/// Bodies that need not say what they are.
template <class Body>
constexpr bool hasContentType = std::same_as<Body, Data> || JSONEncodable<Body>;
template <class Body>
const HTTPMediaType& contentTypeOf() {
  return JSONEncodable<Body> ? HTTPMediaType::json : HTTPMediaType::applicationOctetStream;
}

}  // namespace detail

/// Supplies the defaults of HTTPBodyRequestable on top of those of a request.
template <class Self, class Base = HTTPRequestableDefaults<Self>>
struct HTTPBodyRequestableDefaults : Base {
  /// Plain bytes are an octet stream and values that are written as JSON are JSON; every other body
  /// has to say what it is.
  template <class R = Self>
  requires detail::hasContentType<detail::BodyOf<R>> HTTPMediaType contentType()
  const { return detail::contentTypeOf<detail::BodyOf<R>>(); }
  std::optional<HTTPContentEncoderType> contentEncoder() const { return std::nullopt; }

  /// The request with its body, encoded where it has an encoder. Throws what the body or the
  /// encoder throws too.
  template <class R = Self>
  URLRequest urlRequest() const {
    detail::requireHTTPBodyRequestable<R>();
    const R& self = static_cast<const R&>(*this);
    URLRequest request = self.generateRequest();
    if constexpr (HTTPBodyRequestable<R>) {
      request.setValue(detail::property::contentType(self).rawValue, "Content-Type");
      detail::setBody(request, detail::bytesOf(detail::property::body(self)),
                      detail::property::contentEncoder(self));
    }
    return request;
  }
};

}  // namespace tarn

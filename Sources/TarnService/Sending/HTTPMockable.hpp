#pragma once

#include <Platform/Types/TimeInterval.hpp>
#include <TarnService/Responses/HTTPResponseError.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace tarn {

template <class Self>
struct HTTPTestMockable;

namespace requirement {

template <class R>
concept HasMockHead = property::mockHeadersIs<R, std::optional<HTTPHeaders>> &&
    property::mockURLIs<R, std::optional<URL>> && property::mockStatusIs<R, HTTPStatus>;
template <class R>
concept HasMockResponseTime = property::mockResponseTimeIs<R, TimeInterval>;
template <class R>
concept HasMockDescription =
    property::mockExpectedContentLengthIs<R, std::optional<std::int64_t>> &&
    property::mockSuggestedFilenameIs<R, std::optional<std::string>> &&
    property::mockMimeTypeIs<R, std::optional<std::string>> &&
    property::mockTextEncodingNameIs<R, std::optional<std::string>>;
template <class R>
concept HasMockOutcome = property::mockErrorIs<R, std::optional<Error>> &&
    property::mockResponseDataIs<R, std::optional<Data>>;
template <class R>
concept HasTestValues = property::testHeadersIs<R, std::optional<HTTPHeaders>> &&
    property::testURLIs<R, std::optional<URL>> && property::testStatusIs<R, HTTPStatus> &&
    property::testResponseTimeIs<R, TimeInterval> &&
    property::testExpectedContentLengthIs<R, std::optional<std::int64_t>> &&
    property::testSuggestedFilenameIs<R, std::optional<std::string>> &&
    property::testMimeTypeIs<R, std::optional<std::string>> &&
    property::testTextEncodingNameIs<R, std::optional<std::string>> &&
    property::testErrorIs<R, std::optional<Error>> &&
    property::testResponseDataIs<R, std::optional<Data>>;

}  // namespace requirement

namespace detail {

/// Says in one sentence what a request type lacks to be mocked.
template <class R>
consteval void requireHTTPMockable() {
  requireHTTPRequestable<R>();
  static_assert(
      requirement::HasMockHead<R>,
      "A mockable request's `mockHeaders` are a `std::optional<tarn::HTTPHeaders>`, its "
      "`mockURL` is a `std::optional<tarn::URL>`, its `mockStatus` a `tarn::HTTPStatus`.");
  static_assert(requirement::HasMockResponseTime<R>,
                "A mockable request's `mockResponseTime` is a `tarn::TimeInterval`.");
  static_assert(requirement::HasMockDescription<R>,
                "A mockable request's `mockExpectedContentLength` is a "
                "`std::optional<std::int64_t>`, its `mockSuggestedFilename`, `mockMimeType` and "
                "`mockTextEncodingName` are a `std::optional<std::string>`.");
  static_assert(requirement::HasMockOutcome<R>,
                "A mockable request's `mockError` is a `std::optional<tarn::Error>`, its "
                "`mockResponseData` a `std::optional<tarn::Data>`.");
}

/// The same for the second set of values.
template <class R>
consteval void requireHTTPTestMockable() {
  requireHTTPMockable<R>();
  static_assert(requirement::HasTestValues<R>,
                "Each `test` value of a mockable request has the type of its `mock` value.");
}

/// The queue on which every canned response is made, one after another.
const DispatchQueue& mockBackgroundQueue();

/// What a canned response is made of.
struct MockValues {
  std::optional<HTTPHeaders> headers;
  std::optional<URL> url;
  HTTPStatus status;
  std::optional<std::string> suggestedFilename;
  std::optional<std::string> mimeType;
  std::optional<Error> error;
  std::optional<Data> responseData;

  std::shared_ptr<const HTTPURLResponse> urlResponse() const;
  /// The body as a file of its own, as a download leaves one. Throws FileError.
  URL makeFile(const HTTPURLResponse& response) const;
};

template <class R>
MockValues mockValues(const R& request) {
  return {property::mockHeaders(request),     property::mockURL(request),
          property::mockStatus(request),      property::mockSuggestedFilename(request),
          property::mockMimeType(request),    property::mockError(request),
          property::mockResponseData(request)};
}
template <class R>
MockValues testValues(const R& request) {
  return {property::testHeaders(request),     property::testURL(request),
          property::testStatus(request),      property::testSuggestedFilename(request),
          property::testMimeType(request),    property::testError(request),
          property::testResponseData(request)};
}

/// The way of a request to its canned response.
template <class R>
struct MockOperations {
  using Response = typename R::Response;
  using Queue = std::optional<DispatchQueue>;

  template <class F>
  static void send(const R& request, Queue queue, F&& completion) {
    if constexpr (std::derived_from<R, HTTPTestMockable<R>>) {
      request.test(std::move(queue), std::forward<F>(completion));
    } else {
      request.mock(std::move(queue), std::forward<F>(completion));
    }
  }

  /// `values` are read when the response is due.
  static void answer(const R& request, TimeInterval responseTime, MockValues (*values)(const R&),
                     Queue queue, Completion<Response> completion) {
    mockBackgroundQueue().asyncAfter(responseTime, [request, values, queue = std::move(queue),
                                                    completion = std::move(completion)] {
      async(queue, [completion, response = makeResponse(request, values)]() mutable {
        callLogged("A completion", [&] { completion(std::move(response)); });
      });
    });
  }

  static std::optional<Error> computedError(const R& request, const MockValues& values) {
    if (values.error) return values.error;
    try {
      if (!request.isAcceptable(values.status)) {
        return HTTPResponseError::unacceptableStatus(values.status);
      }
      request.urlRequest();
    } catch (...) {
      return Error::current();
    }
    return std::nullopt;
  }

 private:
  static Response makeResponse(const R& request, MockValues (*read)(const R&)) {
    try {
      const MockValues values = read(request);
      if (const auto error = computedError(request, values)) return failure(*error);
      const auto urlResponse = values.urlResponse();
      if constexpr (std::derived_from<typename R::TaskProducer, HTTPDownloadTaskProducer>) {
        return Response(std::nullopt, values.makeFile(*urlResponse), urlResponse, std::nullopt);
      } else {
        return Response(values.responseData, std::nullopt, urlResponse, std::nullopt);
      }
    } catch (...) {
      return failure(Error::current());
    }
  }

  static Response failure(Error error) {
    return Response(std::nullopt, std::nullopt, nullptr, std::move(error));
  }
};

}  // namespace detail

/// Makes a request one that is answered with a canned response while TarnService::isMocked says so
/// when it is sent: without a task, and without asking `shouldSend`. It can't be cancelled.
///
/// A request overrides a value by a const member function or a stored field of the same name. They
/// are read when the response is due, on a queue that all mocked requests share, and
/// `mockResponseTime` when the request is sent. What a value throws is the failure.
///
/// A download gets a file of its own, as a real one does, with `mockResponseData` in it; nothing
/// tells of its progress. Polls are not mocked, as they do not go through `send`.
template <class Self>
struct HTTPMockable {
  /// Header fields of the response; none where absent.
  std::optional<HTTPHeaders> mockHeaders() const { return detail::property::headers(self()); }
  /// Where the response comes from; where absent, a placeholder.
  std::optional<URL> mockURL() const { return detail::property::url(self()); }
  /// One that the request does not accept is a failure, and the body is not delivered.
  HTTPStatus mockStatus() const { return HTTPStatus::success; }
  /// Seconds until the response; infinite for none at all.
  TimeInterval mockResponseTime() const { return TimeInterval(0); }
  /// For the application: nothing is made of it.
  std::optional<std::int64_t> mockExpectedContentLength() const { return std::nullopt; }
  /// The name of a download's file, which else is taken from the response.
  std::optional<std::string> mockSuggestedFilename() const { return std::nullopt; }
  /// Gives the name of a download's file its extension where it has none.
  std::optional<std::string> mockMimeType() const { return std::nullopt; }
  /// For the application: nothing is made of it.
  std::optional<std::string> mockTextEncodingName() const { return std::nullopt; }
  /// The failure of the request, whatever the other values are.
  std::optional<Error> mockError() const { return std::nullopt; }
  /// The body.
  std::optional<Data> mockResponseData() const { return std::nullopt; }

  /// The head of the canned response.
  std::shared_ptr<const HTTPURLResponse> mockURLResponse() const {
    return detail::mockValues(self()).urlResponse();
  }
  /// Why the canned response is a failure: `mockError`, else a status that the request does not
  /// accept, else what keeps its URL request from being made; nothing for a success.
  std::optional<Error> mockComputedError() const {
    return detail::MockOperations<Self>::computedError(self(), detail::mockValues(self()));
  }

  /// Delivers the canned response as `send` does, whatever `isMocked` says. Responses that are due
  /// at the same time come in the order in which they were asked for. Throws only what
  /// `mockResponseTime` or a copy of the request throws.
  template <class F, class R = Self>
  void mock(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    detail::requireHTTPMockable<R>();
    static_assert(std::is_convertible_v<F&&, Completion<typename R::Response>>,
                  "The completion is callable with the request's `Response`.");
    detail::MockOperations<R>::answer(self(), detail::property::mockResponseTime(self()),
                                      &detail::mockValues<R>, std::move(completionQueue),
                                      std::forward<F>(completion));
  }

 private:
  const Self& self() const noexcept { return static_cast<const Self&>(*this); }
};

/// A mockable request with a second set of values, which `send` takes instead of the first: for
/// automated tests beside demonstrations, say. Each is that of the first set where it is not said.
template <class Self>
struct HTTPTestMockable : HTTPMockable<Self> {
  std::optional<HTTPHeaders> testHeaders() const { return detail::property::mockHeaders(self()); }
  std::optional<URL> testURL() const { return detail::property::mockURL(self()); }
  HTTPStatus testStatus() const { return detail::property::mockStatus(self()); }
  TimeInterval testResponseTime() const { return detail::property::mockResponseTime(self()); }
  std::optional<std::int64_t> testExpectedContentLength() const {
    return detail::property::mockExpectedContentLength(self());
  }
  std::optional<std::string> testSuggestedFilename() const {
    return detail::property::mockSuggestedFilename(self());
  }
  std::optional<std::string> testMimeType() const { return detail::property::mockMimeType(self()); }
  std::optional<std::string> testTextEncodingName() const {
    return detail::property::mockTextEncodingName(self());
  }
  std::optional<Error> testError() const { return detail::property::mockError(self()); }
  std::optional<Data> testResponseData() const {
    return detail::property::mockResponseData(self());
  }

  /// As `mockURLResponse`, of the second set.
  std::shared_ptr<const HTTPURLResponse> testURLResponse() const {
    return detail::testValues(self()).urlResponse();
  }
  /// As `mockComputedError`, of the second set.
  std::optional<Error> testComputedError() const {
    return detail::MockOperations<Self>::computedError(self(), detail::testValues(self()));
  }
  /// As `mock`, with the second set.
  template <class F, class R = Self>
  void test(std::optional<DispatchQueue> completionQueue, F&& completion) const {
    detail::requireHTTPTestMockable<R>();
    static_assert(std::is_convertible_v<F&&, Completion<typename R::Response>>,
                  "The completion is callable with the request's `Response`.");
    detail::MockOperations<R>::answer(self(), detail::property::testResponseTime(self()),
                                      &detail::testValues<R>, std::move(completionQueue),
                                      std::forward<F>(completion));
  }

 private:
  const Self& self() const noexcept { return static_cast<const Self&>(*this); }
};

}  // namespace tarn

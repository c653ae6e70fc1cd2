#pragma once

#include <TarnService/RequestModel/DataRequest.hpp>
#include <TarnService/RequestModel/JSONRequestable.hpp>

#include <any>
#include <concepts>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

/// Any one encodable value, as the body of a request. Copies share the value, which never changes.
///
/// Written as the value is, as if the reference were not there, but always with jsonEncoder(): the
/// encoder that the value's type names is not asked. For that one, declare a request type whose
/// body is the value itself.
class JSONReference {
  // A view of a text would outlive what it looks at.
  template <class T>
  using Stored =
      std::conditional_t<std::same_as<T, std::string_view> || std::is_pointer_v<T>, std::string, T>;

 public:
  template <class T>
  requires(!std::same_as<T, JSONReference> && JSONEncodable<T> &&
           std::copy_constructible<T>) explicit JSONReference(T json)
      : content_(makeContent(Stored<T>(std::move(json)))) {}
  // Only copies: a moved-from reference would have no value.
  JSONReference(const JSONReference&) noexcept = default;
  JSONReference& operator=(const JSONReference&) noexcept = default;
  ~JSONReference() = default;

  /// The value.
  const std::any& json() const noexcept { return content_->json; }
  /// The value as what it is. Throws DecodingError::typeMismatch where it is of another type. Lives
  /// as long as this or a copy of it.
  template <class T>
  const T& asJSON() const {
    const T* json = std::any_cast<T>(&content_->json);
    if (!json) failAs(unqualifiedTypeName<T>());
    return *json;
  }

  static const JSONEncoder& encoder() { return jsonEncoder(); }
  void encode(JSONWriter& writer) const { content_->encode(content_->json, writer); }
  /// The value as JSON. Throws EncodingError, and what the coding of the value throws.
  Data asData() const;

 private:
  struct Content {
    std::any json;
    void (*encode)(const std::any& json, JSONWriter& writer);
  };

  template <class T>
  static std::shared_ptr<const Content> makeContent(T json) {
    return std::make_shared<const Content>(
        Content{std::move(json), [](const std::any& value, JSONWriter& writer) {
                  writer.encode(*std::any_cast<T>(&value));
                }});
  }
  [[noreturn]] void failAs(std::string_view type) const;

  std::shared_ptr<const Content> content_;
};

/// No content: a body that is `{}`, and the answer type of a request whose answer is of no interest
/// beyond being JSON.
struct EmptyJSON {
  static const JSONDecoder& decoder() { return jsonDecoder(); }
  static const JSONEncoder& encoder() { return jsonEncoder(); }
  /// From any document.
  static EmptyJSON decode(JSONReader& reader);
  void encode(JSONWriter& writer) const;

  friend bool operator==(const EmptyJSON&, const EmptyJSON&) = default;
};

namespace detail {

/// What a ready-made request takes for its body: a reference, or a value that becomes one. A text
/// has to be wrapped by hand: where bytes that are JSON already are meant, it would be sent in
/// quotes.
template <class T>
concept ReferableBody = std::same_as<T, JSONReference> ||
    (std::constructible_from<JSONReference, T> && !std::convertible_to<const T&, std::string_view>);

}  // namespace detail

/// A request for a `JSON` with any method and a JSON body, made from its parts.
template <class JSON>
struct JSONRequest
    : detail::StoredBodyRequest<
          JSONRequestable<JSONRequest<JSON>, JSON,
                          JSONBodyRequestable<JSONRequest<JSON>,
                                              HTTPBodyRequestableDefaults<JSONRequest<JSON>>>>,
          JSONReference> {
  template <detail::ReferableBody Body>
  JSONRequest(URL url, HTTPMethod method, Body body, HTTPHeaders headers = {},
              HTTPQueryItems queryItems = {})
      : JSONRequest::StoredBodyRequest(std::move(url), std::move(method),
                                       JSONReference(std::move(body)), std::move(headers),
                                       std::move(queryItems)) {}
};

/// GET of a `JSON`.
template <class JSON>
struct JSONGetRequest : detail::StoredRequest<JSONGetRequestable<JSONGetRequest<JSON>, JSON>> {
  explicit JSONGetRequest(URL url, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : JSONGetRequest::StoredRequest(std::move(url), HTTPMethod::get, std::move(headers),
                                      std::move(queryItems)) {}
};

/// POST of a JSON body, answered with a `JSON`.
template <class JSON>
struct JSONPostRequest
    : detail::StoredBodyRequest<JSONPostRequestable<JSONPostRequest<JSON>, JSON>, JSONReference> {
  template <detail::ReferableBody Body>
  JSONPostRequest(URL url, Body body, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : JSONPostRequest::StoredBodyRequest(std::move(url), HTTPMethod::post,
                                           JSONReference(std::move(body)), std::move(headers),
                                           std::move(queryItems)) {}
};

/// PUT of a JSON body, answered with a `JSON`.
template <class JSON>
struct JSONPutRequest
    : detail::StoredBodyRequest<JSONPutRequestable<JSONPutRequest<JSON>, JSON>, JSONReference> {
  template <detail::ReferableBody Body>
  JSONPutRequest(URL url, Body body, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : JSONPutRequest::StoredBodyRequest(std::move(url), HTTPMethod::put,
                                          JSONReference(std::move(body)), std::move(headers),
                                          std::move(queryItems)) {}
};

/// PATCH with a JSON body, answered with a `JSON`.
template <class JSON>
struct JSONPatchRequest
    : detail::StoredBodyRequest<JSONPatchRequestable<JSONPatchRequest<JSON>, JSON>, JSONReference> {
  template <detail::ReferableBody Body>
  JSONPatchRequest(URL url, Body body, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : JSONPatchRequest::StoredBodyRequest(std::move(url), HTTPMethod::patch,
                                            JSONReference(std::move(body)), std::move(headers),
                                            std::move(queryItems)) {}
};

/// DELETE, answered with a `JSON`.
template <class JSON>
struct JSONDeleteRequest
    : detail::StoredRequest<JSONDeleteRequestable<JSONDeleteRequest<JSON>, JSON>> {
  explicit JSONDeleteRequest(URL url, HTTPHeaders headers = {}, HTTPQueryItems queryItems = {})
      : JSONDeleteRequest::StoredRequest(std::move(url), HTTPMethod::delete_, std::move(headers),
                                         std::move(queryItems)) {}
};

}  // namespace tarn

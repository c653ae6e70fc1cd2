#pragma once

#include <Platform/Types/Data.hpp>
#include <TarnService/PayloadEncoding/MultipartFormSection.hpp>
#include <TarnService/RequestModel/HTTPRequestableDefaultImplementations.hpp>

#include <concepts>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarn {

/// What separates the sections of a form. All forms of a process share one boundary, with a random
/// UUID made on first use: whoever reads one form's boundary can expect it in the next.
struct BoundaryGenerator {
  std::string returnChars = "\r\n";
  std::string boundary;

  BoundaryGenerator();
};

/// The body of a "multipart/form-data" request (RFC 7578, but for the place of the empty line): its
/// sections, in order.
///
/// A copy is a form of its own, and a request that is sent is copied: what is changed afterwards
/// does not reach that send.
struct MultipartForm {
  std::vector<MultipartFormSection> sections;
  BoundaryGenerator boundaryGeneratory;  // spelled so: callers know it by this name

  MultipartForm() = default;
  MultipartForm(std::initializer_list<MultipartFormSection> sections) : sections(sections) {}
  explicit MultipartForm(std::vector<MultipartFormSection> sections)
      : sections(std::move(sections)) {}

  /// The whole body, in memory: every section is read. Throws what a section throws.
  Data asData() const;
};

/// A request whose `body` is a MultipartForm, on top of an interface with a verb and a producer:
/// `struct Send : MultipartUploadRequestable<Send, DataPostRequestable<Send>>`.
template <class Self, class Base = HTTPBodyRequestableDefaults<Self>>
struct MultipartUploadRequestable : Base {
  HTTPMediaType contentType() const { return HTTPMediaType::multipartFormData; }

  /// The request with its form, encoded where it has an encoder, and the boundary behind its
  /// content type. Throws what a section throws.
  template <class R = Self>
  URLRequest urlRequest() const {
    static_assert(
        requires(const R& request) {
          requires std::derived_from<detail::BodyOf<R>, MultipartForm>;
        },
        "A multipart request's `body` is a `tarn::MultipartForm`.");
    detail::requireHTTPBodyRequestable<R>();
    const R& self = static_cast<const R&>(*this);
    URLRequest request = self.generateRequest();
    const auto& form = detail::property::body(self);
    request.setValue(detail::property::contentType(self).rawValue +
                         "; boundary=" + form.boundaryGeneratory.boundary,
                     "Content-Type");
    detail::setBody(request, form.asData(), detail::property::contentEncoder(self));
    return request;
  }
};

}  // namespace tarn

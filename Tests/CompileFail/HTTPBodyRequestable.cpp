#include <TarnService/RequestModel/DataRequestable.hpp>

#include <string>

struct Text {
  tarn::Data asData() const { return tarn::Data("text"); }
};

/// A request with a body has all that it needs; each fault takes one thing away.
struct Request : tarn::DataPostRequestable<Request> {
#ifdef FAULT_bodyIsText
  std::string body;
#elif !defined(FAULT_withoutBody)
  Text body;
#endif
#ifndef FAULT_withoutContentType
  tarn::HTTPMediaType contentType = tarn::HTTPMediaType::textPlain;
#endif
#ifdef FAULT_encoderIsText
  std::string contentEncoder = "gzip";
#endif
};

tarn::URLRequest make() { return Request().urlRequest(); }

#include <TarnService/PayloadEncoding/MultipartForm.hpp>
#include <TarnService/RequestModel/DataRequestable.hpp>

#include <string>

/// A request with a form has all that it needs; each fault takes one thing away.
struct Request : tarn::MultipartUploadRequestable<Request, tarn::DataPostRequestable<Request>> {
#ifdef FAULT_bodyIsNoForm
  tarn::Data body;
#elif !defined(FAULT_withoutForm)
  tarn::MultipartForm body{{"name", tarn::Data("value")}};
#endif
#ifdef FAULT_encoderIsText
  std::string contentEncoder = "gzip";
#endif
};

tarn::URLRequest make() { return Request().urlRequest(); }

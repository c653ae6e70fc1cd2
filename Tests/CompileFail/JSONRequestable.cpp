#include <TarnService/RequestModel/JSONRequestable.hpp>
#include <TarnService/Sending/HTTPRequestableAdditions.hpp>

#include <string>

class Opaque {
 public:
  int number() const { return number_; }

 private:
  int number_ = 0;
};

/// Bytes in a form of its own, which need not be JSON.
struct Text {
  std::string text;
  tarn::Data asData() const { return tarn::Data(text); }
};

struct User {
  int id = 0;
};

/// The answer can be decoded and the body encoded; each fault takes one of them away.
#ifdef FAULT_answerIsNotDecodable
using Answer = Opaque;
#else
using Answer = User;
#endif

struct Request : tarn::JSONPostRequestable<Request, Answer> {
#if defined(FAULT_bodyIsNotEncodable)
  Opaque body;
#elif defined(FAULT_bodyIsBytes)
  tarn::Data body;
#elif defined(FAULT_bodyIsText)
  std::string body;
#elif defined(FAULT_bodyNamesNoEncoder)
  Text body;
#else
  User body;
#endif
};

void send() {
  Request().send(std::nullopt, [](const tarn::JSONResponse<Answer>&) {});
}

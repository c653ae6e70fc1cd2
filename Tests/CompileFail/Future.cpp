#include <Tambour/Future.hpp>

#include <memory>
#include <string>

#ifdef FAULT_valueCannotBeCopied
using Value = std::unique_ptr<std::string>;
#else
using Value = std::string;
#endif

void use(const tarn::Future<Value>& future) {
#ifdef FAULT_handlerOfAnotherValue
  future.onCompletion([](int) {});
#else
  future.onCompletion([](const Value&) {});
#endif
#ifdef FAULT_continuationOfAnotherValue
  future.then([](int) {});
#endif
}

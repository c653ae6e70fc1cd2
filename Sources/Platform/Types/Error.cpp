#include <Platform/Types/Error.hpp>
#include <Platform/Types/TypeName.hpp>

#include <system_error>

namespace tarn {

CodedError::CodedError(const CodedError&) noexcept {}

CodedError& CodedError::operator=(const CodedError& other) noexcept {
  if (this != &other) delete what_.exchange(nullptr, std::memory_order_acq_rel);
  return *this;
}

CodedError::~CodedError() { delete what_.load(std::memory_order_acquire); }

std::string CodedError::domain() const { return qualifiedTypeName(typeid(*this)); }

std::map<std::string, AnyValue> CodedError::userInfo() const {
  return {{"NSLocalizedDescription", message()}};
}

const char* CodedError::what() const noexcept try {
  const std::string* text = what_.load(std::memory_order_acquire);
  if (text != nullptr) return text->c_str();
  auto made = std::make_unique<const std::string>(message());
  if (what_.compare_exchange_strong(text, made.get(), std::memory_order_acq_rel)) {
    text = made.release();
  }
  return text->c_str();  // the first of several threads has stored its own
} catch (...) {
  return "an error whose message could not be made";
}

namespace {

class UnknownException final : public std::exception {
 public:
  const char* what() const noexcept override { return "unknown exception"; }
};

}  // namespace

// Keeps the thrown object itself alive. The exception_ptr lives in shared state, so that the count
// that threads share is the shared_ptr's, which ThreadSanitizer can see, and not the one inside the
// C++ runtime.
struct Error::Thrown final : State {
  explicit Thrown(std::exception_ptr thrown) noexcept : pointer(std::move(thrown)) {
    exception = &unknown;
    if (!pointer) return;
    try {
      std::rethrow_exception(pointer);
    } catch (const std::exception& error) {
      exception = &error;  // rethrowing does not copy: this is the object that `pointer` keeps
    } catch (...) {
    }
  }

  void raise() const override {
    if (pointer) std::rethrow_exception(pointer);
    throw unknown;
  }

  std::exception_ptr pointer;
  UnknownException unknown;
};

Error Error::current() noexcept {
  return Error(std::make_shared<const Thrown>(std::current_exception()));
}

std::string Error::message() const {
  if (const auto* coded = as<CodedError>()) return coded->message();
  return state_->exception->what();
}

std::string Error::domain() const {
  if (const auto* coded = as<CodedError>()) return coded->domain();
  if (const auto* system = as<std::system_error>()) return system->code().category().name();
  const std::exception& exception = *state_->exception;
  return qualifiedTypeName(typeid(exception));
}

std::int64_t Error::code() const noexcept {
  if (const auto* coded = as<CodedError>()) return coded->code();
  if (const auto* system = as<std::system_error>()) return system->code().value();
  return 1;
}

std::map<std::string, AnyValue> Error::userInfo() const {
  if (const auto* coded = as<CodedError>()) return coded->userInfo();
  return {{"NSLocalizedDescription", message()}};
}

}  // namespace tarn

#include <Platform/Types/Data.hpp>
#include <TarnService/Responses/GZipError.hpp>

namespace tarn {
namespace {

// zlib's error codes run from -2 down to -6, in the order of the cases.
GZipError::Case caseOf(std::int32_t code) {
  return code >= -6 && code <= -2 ? static_cast<GZipError::Case>(-2 - code)
                                  : GZipError::Case::unknown;
}

}  // namespace

GZipError::GZipError(std::int32_t code, const char* message)
    : case_(caseOf(code)),
      zlibCode_(code),
      zlibMessage_(message && isValidUTF8(message) ? message : "unknown gzip error") {}

std::string GZipError::message() const {
  switch (case_) {
    case Case::stream:
      return "Stream structure was inconsistent: " + zlibMessage_;
    case Case::data:
      return "The input data was corrupted: " + zlibMessage_;
    case Case::memory:
      return "Not enough memory: " + zlibMessage_;
    case Case::buffer:
      return "No progress is possible or there was not enough room in the output buffer: " +
             zlibMessage_;
    case Case::version:
      return "The zlib library version is incompatible with the version assumed by the caller: " +
             zlibMessage_;
    case Case::unknown:
      break;
  }
  return "Unknown error occurred. Code: " + std::to_string(zlibCode_) +
         ". Message: " + zlibMessage_;
}

}  // namespace tarn

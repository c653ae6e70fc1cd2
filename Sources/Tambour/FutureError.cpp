#include <Tambour/FutureError.hpp>

namespace tarn {

std::string FutureError::message() const {
  switch (case_) {
    case Case::timedOut:
      return "The future was not settled in time.";
    case Case::cancelled:
      return "The future was cancelled.";
    case Case::broken:
      break;
  }
  return "The producer of the future went away without settling it.";
}

}  // namespace tarn

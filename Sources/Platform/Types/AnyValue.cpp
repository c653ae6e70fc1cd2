#include <Platform/Types/AnyValue.hpp>

#include <array>
#include <charconv>
#include <cmath>

namespace tarn::detail {
namespace {

template <class T>
std::string describeFloating(T value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  std::array<char, 64> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  std::string text(buffer.data(), result.ptr);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string describeSigned(long long value) { return std::to_string(value); }
std::string describeUnsigned(unsigned long long value) { return std::to_string(value); }
std::string describeFloat(float value) { return describeFloating(value); }
std::string describeDouble(double value) { return describeFloating(value); }

}  // namespace tarn::detail

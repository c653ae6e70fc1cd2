#include <Platform/Dispatch/ForkSafety.hpp>
#include <TarnService/Diagnostics/Logger.hpp>

namespace tarn {

const Logger& logger() {
  const detail::NoForkScope scope;  // not while it is being made
  static const Logger& instance = *new Logger("TarnService");
  return instance;
}

}  // namespace tarn

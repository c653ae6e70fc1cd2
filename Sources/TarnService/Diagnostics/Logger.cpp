#include <TarnService/Diagnostics/Logger.hpp>

namespace tarn {

const Logger& logger() {
  static const Logger& instance = *new Logger("TarnService");
  return instance;
}

}  // namespace tarn

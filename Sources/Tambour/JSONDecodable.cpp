#include <Tambour/JSONDecodable.hpp>

namespace tarn {

const JSONDecoder& jsonDecoder() {
  static const JSONDecoder& decoder = *new JSONDecoder;
  return decoder;
}

}  // namespace tarn

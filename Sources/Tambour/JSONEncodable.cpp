#include <Tambour/JSONEncodable.hpp>

namespace tarn {

const JSONEncoder& jsonEncoder() {
  static const JSONEncoder& encoder = *new JSONEncoder;
  return encoder;
}

}  // namespace tarn

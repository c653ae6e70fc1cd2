#include <Platform/Dispatch/ForkSafety.hpp>
#include <Tambour/JSONEncodable.hpp>

namespace tarn {

const JSONEncoder& jsonEncoder() {
  const detail::NoForkScope scope;  // not while it is being made
  static const JSONEncoder& encoder = *new JSONEncoder;
  return encoder;
}

}  // namespace tarn

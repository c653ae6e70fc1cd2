#include <Platform/Dispatch/ForkSafety.hpp>
#include <Tambour/JSONDecodable.hpp>

namespace tarn {

const JSONDecoder& jsonDecoder() {
  const detail::NoForkScope scope;  // not while it is being made
  static const JSONDecoder& decoder = *new JSONDecoder;
  return decoder;
}

}  // namespace tarn

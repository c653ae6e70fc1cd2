#include <Platform/JSON/DecodingError.hpp>
#include <TarnService/RequestModel/JSONRequest.hpp>

namespace tarn {

Data JSONReference::asData() const { return encoder().encode(*this); }

void JSONReference::failAs(std::string_view type) const {
  throw DecodingError::typeMismatch(
      {}, "expected " + std::string(type) + ", found " + unqualifiedTypeName(json().type()));
}

EmptyJSON EmptyJSON::decode(JSONReader& reader) {
  reader.skip();
  return {};
}

void EmptyJSON::encode(JSONWriter& writer) const {
  writer.object([] {});
}

}  // namespace tarn

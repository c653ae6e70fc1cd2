#include <array>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdexcept>
#include <string_view>

#include "Orders.hpp"

namespace bench {
namespace {

using rapidjson::Value;
using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr std::array<std::string_view, 4> statuses = {"placed", "paid", "shipped", "returned"};
constexpr std::array<std::string_view, 4> currencies = {"EUR", "USD", "GBP", "SEK"};

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

void read(const Value& json, std::string& value) {
  require(json.IsString(), "no string");
  value.assign(json.GetString(), json.GetStringLength());
}
void read(const Value& json, double& value) {
  require(json.IsNumber(), "no number");
  value = json.GetDouble();
}
void read(const Value& json, std::int64_t& value) {
  require(json.IsInt64(), "no 64-bit integer");
  value = json.GetInt64();
}
void read(const Value& json, std::int32_t& value) {
  require(json.IsInt(), "no integer");
  value = json.GetInt();
}
void read(const Value& json, std::uint32_t& value) {
  require(json.IsUint(), "no unsigned integer");
  value = json.GetUint();
}
void read(const Value& json, bool& value) {
  require(json.IsBool(), "no boolean");
  value = json.GetBool();
}
template <class E>
void readName(const Value& json, const std::array<std::string_view, 4>& names, E& value) {
  require(json.IsString(), "no name");
  const std::string_view text(json.GetString(), json.GetStringLength());
  for (std::size_t i = 0; i < names.size(); ++i)
    if (names[i] == text) return void(value = static_cast<E>(i));
  throw std::runtime_error("an unknown name");
}
void read(const Value& json, OrderStatus& value) { readName(json, statuses, value); }
void read(const Value& json, Currency& value) { readName(json, currencies, value); }

void read(const Value& json, Location& location);
void read(const Value& json, Address& address);
void read(const Value& json, Product& product);
void read(const Value& json, OrderLine& line);
void read(const Value& json, Order& order);

template <class T>
void read(const Value& json, std::vector<T>& values) {
  require(json.IsArray(), "no array");
  values.reserve(json.Size());
  for (const auto& element : json.GetArray()) read(element, values.emplace_back());
}
template <class T, std::size_t N>
void member(const Value& json, const char (&key)[N], T& value) {
  const auto found = json.FindMember(rapidjson::StringRef(key));
  require(found != json.MemberEnd(), key);
  read(found->value, value);
}
template <class T, std::size_t N>
void member(const Value& json, const char (&key)[N], std::optional<T>& value) {
  const auto found = json.FindMember(rapidjson::StringRef(key));
  if (found != json.MemberEnd() && !found->value.IsNull()) read(found->value, value.emplace());
}

void read(const Value& json, Location& location) {
  require(json.IsObject(), "no object");
  member(json, "latitude", location.latitude);
  member(json, "longitude", location.longitude);
}

void read(const Value& json, Address& address) {
  require(json.IsObject(), "no object");
  member(json, "name", address.name);
  member(json, "street", address.street);
  member(json, "city", address.city);
  member(json, "postalCode", address.postalCode);
  member(json, "country", address.country);
  member(json, "location", address.location);
}

void read(const Value& json, Product& product) {
  require(json.IsObject(), "no object");
  member(json, "sku", product.sku);
  member(json, "title", product.title);
  member(json, "description", product.description);
  member(json, "price", product.price);
  member(json, "weight", product.weight);
  member(json, "stock", product.stock);
  member(json, "isDigital", product.isDigital);
  member(json, "tags", product.tags);
}

void read(const Value& json, OrderLine& line) {
  require(json.IsObject(), "no object");
  member(json, "product", line.product);
  member(json, "quantity", line.quantity);
  member(json, "discount", line.discount);
  member(json, "isGift", line.isGift);
}

void read(const Value& json, Order& order) {
  require(json.IsObject(), "no object");
  member(json, "id", order.id);
  member(json, "createdAt", order.createdAt);
  member(json, "status", order.status);
  member(json, "currency", order.currency);
  member(json, "total", order.total);
  member(json, "shippingAddress", order.shippingAddress);
  member(json, "billingAddress", order.billingAddress);
  member(json, "lines", order.lines);
  member(json, "history", order.history);
  member(json, "comment", order.comment);
}

void write(Writer& writer, std::string_view text) {
  writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}
void write(Writer& writer, double value) { writer.Double(value); }
void write(Writer& writer, std::int64_t value) { writer.Int64(value); }
void write(Writer& writer, std::int32_t value) { writer.Int(value); }
void write(Writer& writer, std::uint32_t value) { writer.Uint(value); }
void write(Writer& writer, bool value) { writer.Bool(value); }
void write(Writer& writer, OrderStatus value) {
  write(writer, statuses[static_cast<std::size_t>(value)]);
}
void write(Writer& writer, Currency value) {
  write(writer, currencies[static_cast<std::size_t>(value)]);
}

void write(Writer& writer, const Location& location);
void write(Writer& writer, const Address& address);
void write(Writer& writer, const Product& product);
void write(Writer& writer, const OrderLine& line);
void write(Writer& writer, const Order& order);

template <class T>
void write(Writer& writer, const std::vector<T>& values) {
  writer.StartArray();
  for (const auto& value : values) write(writer, value);
  writer.EndArray();
}
template <class T, std::size_t N>
void member(Writer& writer, const char (&key)[N], const T& value) {
  writer.Key(key, N - 1);
  write(writer, value);
}
template <class T, std::size_t N>
void member(Writer& writer, const char (&key)[N], const std::optional<T>& value) {
  if (value) member(writer, key, *value);
}

void write(Writer& writer, const Location& location) {
  writer.StartObject();
  member(writer, "latitude", location.latitude);
  member(writer, "longitude", location.longitude);
  writer.EndObject();
}

void write(Writer& writer, const Address& address) {
  writer.StartObject();
  member(writer, "name", address.name);
  member(writer, "street", address.street);
  member(writer, "city", address.city);
  member(writer, "postalCode", address.postalCode);
  member(writer, "country", address.country);
  member(writer, "location", address.location);
  writer.EndObject();
}

void write(Writer& writer, const Product& product) {
  writer.StartObject();
  member(writer, "sku", product.sku);
  member(writer, "title", product.title);
  member(writer, "description", product.description);
  member(writer, "price", product.price);
  member(writer, "weight", product.weight);
  member(writer, "stock", product.stock);
  member(writer, "isDigital", product.isDigital);
  member(writer, "tags", product.tags);
  writer.EndObject();
}

void write(Writer& writer, const OrderLine& line) {
  writer.StartObject();
  member(writer, "product", line.product);
  member(writer, "quantity", line.quantity);
  member(writer, "discount", line.discount);
  member(writer, "isGift", line.isGift);
  writer.EndObject();
}

void write(Writer& writer, const Order& order) {
  writer.StartObject();
  member(writer, "id", order.id);
  member(writer, "createdAt", order.createdAt);
  member(writer, "status", order.status);
  member(writer, "currency", order.currency);
  member(writer, "total", order.total);
  member(writer, "shippingAddress", order.shippingAddress);
  member(writer, "billingAddress", order.billingAddress);
  member(writer, "lines", order.lines);
  member(writer, "history", order.history);
  member(writer, "comment", order.comment);
  writer.EndObject();
}

}  // namespace

OrderPage decodeWithRapidJSON(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  require(!document.HasParseError() && document.IsObject(), "no document");
  OrderPage page;
  member(document, "page", page.page);
  member(document, "totalCount", page.totalCount);
  member(document, "next", page.next);
  member(document, "orders", page.orders);
  return page;
}

std::size_t encodeWithRapidJSON(const OrderPage& page, std::string* copy) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  writer.StartObject();
  member(writer, "page", page.page);
  member(writer, "totalCount", page.totalCount);
  member(writer, "next", page.next);
  member(writer, "orders", page.orders);
  writer.EndObject();
  if (copy) copy->assign(buffer.GetString(), buffer.GetSize());
  return buffer.GetSize();
}

}  // namespace bench

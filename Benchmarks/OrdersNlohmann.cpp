#include <nlohmann/json.hpp>

#include "Orders.hpp"

// NOLINTBEGIN(readability-identifier-naming): to_json and from_json are the library's names
namespace bench {
namespace {

using nlohmann::json;

template <class T>
void write(json& j, const char* key, const std::optional<T>& value) {
  if (value) j[key] = *value;
}
template <class T>
void read(const json& j, const char* key, std::optional<T>& value) {
  if (const auto found = j.find(key); found != j.end() && !found->is_null())
    value = found->template get<T>();
}

}  // namespace

NLOHMANN_JSON_SERIALIZE_ENUM(OrderStatus, {{OrderStatus::placed, "placed"},
                                           {OrderStatus::paid, "paid"},
                                           {OrderStatus::shipped, "shipped"},
                                           {OrderStatus::returned, "returned"}})
NLOHMANN_JSON_SERIALIZE_ENUM(Currency, {{Currency::EUR, "EUR"},
                                        {Currency::USD, "USD"},
                                        {Currency::GBP, "GBP"},
                                        {Currency::SEK, "SEK"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Location, latitude, longitude)

static void to_json(json& j, const Address& address) {
  j = {{"name", address.name},
       {"street", address.street},
       {"city", address.city},
       {"postalCode", address.postalCode},
       {"country", address.country}};
  write(j, "location", address.location);
}
static void from_json(const json& j, Address& address) {
  j.at("name").get_to(address.name);
  j.at("street").get_to(address.street);
  j.at("city").get_to(address.city);
  j.at("postalCode").get_to(address.postalCode);
  j.at("country").get_to(address.country);
  read(j, "location", address.location);
}

static void to_json(json& j, const Product& product) {
  j = {{"sku", product.sku},       {"title", product.title}, {"price", product.price},
       {"weight", product.weight}, {"stock", product.stock}, {"isDigital", product.isDigital},
       {"tags", product.tags}};
  write(j, "description", product.description);
}
static void from_json(const json& j, Product& product) {
  j.at("sku").get_to(product.sku);
  j.at("title").get_to(product.title);
  read(j, "description", product.description);
  j.at("price").get_to(product.price);
  j.at("weight").get_to(product.weight);
  j.at("stock").get_to(product.stock);
  j.at("isDigital").get_to(product.isDigital);
  j.at("tags").get_to(product.tags);
}

static void to_json(json& j, const OrderLine& line) {
  j = {{"product", line.product}, {"quantity", line.quantity}, {"isGift", line.isGift}};
  write(j, "discount", line.discount);
}
static void from_json(const json& j, OrderLine& line) {
  j.at("product").get_to(line.product);
  j.at("quantity").get_to(line.quantity);
  read(j, "discount", line.discount);
  j.at("isGift").get_to(line.isGift);
}

static void to_json(json& j, const Order& order) {
  j = {{"id", order.id},         {"createdAt", order.createdAt},
       {"status", order.status}, {"currency", order.currency},
       {"total", order.total},   {"shippingAddress", order.shippingAddress},
       {"lines", order.lines},   {"history", order.history}};
  write(j, "billingAddress", order.billingAddress);
  write(j, "comment", order.comment);
}
static void from_json(const json& j, Order& order) {
  j.at("id").get_to(order.id);
  j.at("createdAt").get_to(order.createdAt);
  j.at("status").get_to(order.status);
  j.at("currency").get_to(order.currency);
  j.at("total").get_to(order.total);
  j.at("shippingAddress").get_to(order.shippingAddress);
  read(j, "billingAddress", order.billingAddress);
  j.at("lines").get_to(order.lines);
  j.at("history").get_to(order.history);
  read(j, "comment", order.comment);
}

static void to_json(json& j, const OrderPage& page) {
  j = {{"page", page.page}, {"totalCount", page.totalCount}, {"orders", page.orders}};
  write(j, "next", page.next);
}
static void from_json(const json& j, OrderPage& page) {
  j.at("page").get_to(page.page);
  j.at("totalCount").get_to(page.totalCount);
  read(j, "next", page.next);
  j.at("orders").get_to(page.orders);
}

OrderPage decodeWithNlohmann(const std::string& text) {
  OrderPage page;
  json::parse(text).get_to(page);
  return page;
}

std::string encodeWithNlohmann(const OrderPage& page) { return json(page).dump(); }

}  // namespace bench
// NOLINTEND(readability-identifier-naming)

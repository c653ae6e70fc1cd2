#include "Orders.hpp"

#include <array>
#include <cmath>
#include <random>
#include <string_view>

namespace bench {
namespace {

// Most texts are plain; some have characters beyond ASCII, some have some that are escaped.
constexpr std::array<std::string_view, 12> titles = {
    "Desk lamp, brushed steel", "Café table “Malmö”", "Notebook A5, 5 mm grid",
    "24\" monitor arm",         "Wool blanket, grey", "Fjäderlätt täcke 150×200",
    "USB-C cable, 2 m",         "抹茶セット",         "Ceramic mug",
    "Field guide to mosses",    "Pruning shears",     "Bücherstütze, Eiche geölt"};
constexpr std::array<std::string_view, 4> descriptions = {
    "Sturdy, repairable and easy to clean. Spare parts are kept for ten years.",
    "First line of the description.\nSecond line:\t\"as new\", checked by hand.",
    "Größe: 42 × 30 × 18 cm; Gewicht ohne Verpackung, Änderungen vorbehalten.",
    "Machine washable at 40 degrees; do not tumble dry, do not bleach."};
constexpr std::array<std::string_view, 8> tags = {"home",   "office",     "outdoor", "sale",
                                                  "garden", "stationery", "kitchen", "new-in"};
constexpr std::array<std::string_view, 6> names = {"Ada Lovelace", "Åsa Öberg",    "José Núñez",
                                                   "Grace Hopper", "Erika Müller", "Tom O'Neill"};
constexpr std::array<std::string_view, 4> cities = {"Stockholm", "Zürich", "Bristol", "Kraków"};
constexpr std::array<std::string_view, 4> countries = {"SE", "CH", "GB", "PL"};

class OrderMaker {
 public:
  Order order(std::size_t index) {
    Order order;
    order.id = 7'000'000'000'000 + static_cast<std::int64_t>(index) * 977;
    order.createdAt = "2026-0" + std::to_string(1 + below(9)) + "-1" + std::to_string(below(10)) +
                      "T08:3" + std::to_string(below(10)) + ":00Z";
    order.status = static_cast<OrderStatus>(below(4));
    order.currency = static_cast<Currency>(below(4));
    order.total = decimal(500'000, 2);
    order.shippingAddress = address();
    if (below(3) == 0) order.billingAddress = address();
    for (std::uint32_t lines = 1 + below(4); lines > 0; --lines) order.lines.push_back(line());
    for (std::uint32_t events = below(6); events > 0; --events)
      order.history.push_back(static_cast<std::int32_t>(below(100'000)));
    if (below(4) == 0)
      order.comment = "Please leave it at \"Paketshop Süd\" \\ back door.\nThanks!";
    return order;
  }

 private:
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(engine_() % bound); }
  double decimal(std::uint32_t bound, int places) { return below(bound) / std::pow(10.0, places); }
  template <std::size_t N>
  std::string one(const std::array<std::string_view, N>& texts) {
    return std::string(texts[below(N)]);
  }

  Address address() {
    Address address{one(names),     std::to_string(1 + below(200)) + " Lindenweg",
                    one(cities),    std::to_string(10'000 + below(90'000)),
                    one(countries), {}};
    if (below(2) == 0) address.location = {decimal(90'000'000, 6), -decimal(180'000'000, 6)};
    return address;
  }

  OrderLine line() {
    OrderLine line;
    auto& product = line.product;
    product.sku = "SKU-" + std::to_string(100'000 + below(900'000));
    product.title = one(titles);
    if (below(2) == 0) product.description = one(descriptions);
    product.price = decimal(50'000, 2);
    product.weight = decimal(20'000, 3);
    product.stock = below(5'000);
    product.isDigital = below(5) == 0;
    for (std::uint32_t count = below(4); count > 0; --count) product.tags.push_back(one(tags));
    line.quantity = static_cast<std::int32_t>(1 + below(12));
    if (below(4) == 0) line.discount = decimal(50, 2);
    line.isGift = below(8) == 0;
    return line;
  }

  std::mt19937 engine_{20};  // the standard lays down its numbers, unlike those of distributions
};

}  // namespace

OrderPage makeOrders(std::size_t count) {
  OrderPage page;
  page.page = 3;
  page.totalCount = 18'250;
  page.next = "https://api.example.com/v1/orders?page=4&sort=createdAt";
  OrderMaker maker;
  for (std::size_t i = 0; i < count; ++i) page.orders.push_back(maker.order(i));
  return page;
}

bool isServedPage(const OrderPage& page) {
  static const OrderPage served = makeOrders(page.orders.size());
  static const bool isEqual = !served.orders.empty() && page == served;
  return isEqual && page.orders.size() == served.orders.size();
}

}  // namespace bench

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace bench {

enum class OrderStatus { placed, paid, shipped, returned };
enum class Currency { EUR, USD, GBP, SEK };

struct Location {
  double latitude{};
  double longitude{};

  bool operator==(const Location&) const = default;
};

struct Address {
  std::string name;
  std::string street;
  std::string city;
  std::string postalCode;
  std::string country;
  std::optional<Location> location;

  bool operator==(const Address&) const = default;
};

struct Product {
  std::string sku;
  std::string title;
  std::optional<std::string> description;
  double price{};
  double weight{};
  std::uint32_t stock{};
  bool isDigital{};
  std::vector<std::string> tags;

  bool operator==(const Product&) const = default;
};

struct OrderLine {
  Product product;
  std::int32_t quantity{};
  std::optional<double> discount;
  bool isGift{};

  bool operator==(const OrderLine&) const = default;
};

struct Order {
  std::int64_t id{};
  std::string createdAt;
  OrderStatus status{};
  Currency currency{};
  double total{};
  Address shippingAddress;
  std::optional<Address> billingAddress;
  std::vector<OrderLine> lines;
  std::vector<std::int32_t> history;
  std::optional<std::string> comment;

  bool operator==(const Order&) const = default;
};

struct OrderPage {
  std::int32_t page{};
  std::int64_t totalCount{};
  std::optional<std::string> next;
  std::vector<Order> orders;

  bool operator==(const OrderPage&) const = default;
};

/// The same orders in each run.
OrderPage makeOrders(std::size_t count);
/// Whether a page that was decoded is the one that was served; all but the first are only counted.
bool isServedPage(const OrderPage& page);

// The other libraries, each with its own way to map a document to the structs.
OrderPage decodeWithNlohmann(const std::string& json);
std::string encodeWithNlohmann(const OrderPage& page);
OrderPage decodeWithRapidJSON(const std::string& json);
/// The size of the text, which lives no longer than its encoder.
std::size_t encodeWithRapidJSON(const OrderPage& page, std::string* copy = nullptr);

}  // namespace bench

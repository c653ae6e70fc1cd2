// How values become JSON and come back: what Documentation/json.md shows.

#include <TarnService/TarnService.hpp>

#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace {

// [struct]
enum class Size { small, large };

struct Item {
  std::string name;
  double price;
  Size size;
  std::optional<std::string> note;
};

struct Order {
  std::int64_t number;
  std::vector<Item> items;
  std::map<std::string, int> stock;
  std::variant<int, std::string> customer;
};
// [struct]

// [keys]
struct Page {
  int number;
  int size = 20;
  std::vector<std::string> entries;

  static constexpr tarn::JSONKeys codingKeys = {{"number", "page_no"}, {"entries", "data"}};
  static constexpr tarn::JSONMembers defaultedMembers = {"size"};
};
// [keys]

// [own]
struct Point {
  double x;
  double y;

  static Point decode(tarn::JSONReader& reader) {
    const auto [x, y] = reader.decode<std::array<double, 2>>();
    return {x, y};
  }
  void encode(tarn::JSONWriter& writer) const {
    writer.array([&] {
      writer.element(x);
      writer.element(y);
    });
  }
};
// [own]

// [cases]
enum class Colour { red, dark };

constexpr auto jsonCases(Colour) {
  return std::to_array<tarn::JSONCase<Colour>>({{Colour::red, "RED"}, {Colour::dark, "DARK-1"}});
}
// [cases]

// [decoder]
struct Event {
  std::string eventName;
  std::chrono::sys_seconds startsAt;

  static const tarn::JSONDecoder& decoder() {
    static const tarn::JSONDecoder decoder{
        .keyDecodingStrategy = tarn::JSONDecoder::convertFromSnakeCase,
        .dateDecodingStrategy = tarn::JSONDecoder::iso8601};
    return decoder;
  }
};
// [decoder]

template <class T>
void print(const T& value) {
  std::printf("%s\n", std::string(tarn::JSONEncoder().encode(value).view()).c_str());
}

}  // namespace

int main() {
  const std::string json = R"({"number": 9007199254740993, "customer": "ada", "stock": {"tea": 3},
      "items": [{"name": "tea", "price": 4.5, "size": "small"}]})";
  // [decode]
  const auto order = tarn::JSONDecoder().decode<Order>(json);
  // [decode]
  print(order);
  print(tarn::JSONDecoder().decode<Page>(R"({"page_no": 1, "data": ["a"]})"));
  print(tarn::JSONDecoder().decode<std::vector<Point>>("[[1, 2.5]]"));
  print(tarn::JSONDecoder().decode<Colour>(R"("DARK-1")"));
  const auto event = Event::decoder().decode<Event>(
      R"({"event_name": "launch", "starts_at": "2026-11-21T08:30:00+01:00"})");
  std::printf("%s at %lld\n", event.eventName.c_str(),
              static_cast<long long>(event.startsAt.time_since_epoch().count()));
  // [value]
  const auto value = tarn::JSONDecoder().decode<tarn::JSONValue>(R"({"a": [1, 2.5, null]})");
  // [value]
  print(value);
  try {
    tarn::JSONDecoder().decode<Order>(
        R"({"number": 1, "items": [{"name": "tea", "price": "4,50"}]})");
  } catch (const tarn::DecodingError& error) {
    std::printf("%s\n", error.what());
  }
}

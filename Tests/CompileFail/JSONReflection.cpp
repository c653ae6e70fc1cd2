#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <string>

struct Tag {
  Tag() = default;
};

struct Base {
  int inherited{};
};

#ifdef FAULT_noEnumeratorInReach
enum class Status { open = 1000 };
#else
enum class Status { open = 100 };
#endif

struct Fixed {
  explicit Fixed(int number) : value(number) {}
  int value;
  static Fixed decode(tarn::JSONReader& reader) { return Fixed(reader.decode<int>()); }
  void encode(tarn::JSONWriter& writer) const { writer.encode(value); }
};

/// A type that JSON is read as, and that is written as JSON; each fault takes one thing away.
#ifdef FAULT_base
struct Value : Base {
#else
struct Value {
#endif
  std::string name;
  int count{};
  Status status{};
#ifdef FAULT_arrayMember
  std::string lines[3];
#endif
#ifdef FAULT_arrayOfOne
  int numbers[1]{};
#endif
#ifdef FAULT_referenceMember
  int& number;
#endif
#ifdef FAULT_constMember
  const int number{};
#endif
#ifdef FAULT_memberWithoutCoding
  Tag tag{};
#endif
#ifdef FAULT_memberWithoutInitialValue
  Fixed fixed;
#endif
#ifdef FAULT_keyOfNoMember
  static constexpr tarn::JSONKeys codingKeys = {{"nmae", "n"}};
#elif defined(FAULT_equalKeys)
  static constexpr tarn::JSONKeys codingKeys = {{"name", "count"}};
#else
static constexpr tarn::JSONKeys codingKeys = {{"name", "n"}};
#endif
#ifdef FAULT_defaultOfNoMember
  static constexpr tarn::JSONMembers defaultedMembers = {"counts"};
#else
  static constexpr tarn::JSONMembers defaultedMembers = {"count"};
#endif
#ifdef FAULT_tooManyMembers
#define TEN(m) int m##0, m##1, m##2, m##3, m##4, m##5, m##6, m##7, m##8, m##9;
  TEN(a) TEN(b) TEN(c) TEN(d) TEN(e) TEN(f) TEN(g) TEN(h) TEN(i) TEN(j)
#endif
};

struct Custom {
  int value{};
  static Custom decode(tarn::JSONReader& reader) {
#ifdef FAULT_readsNoJSON
    return {reader.decode<Tag>(), 1};
#else
    return {reader.decode<int>()};
#endif
  }
  void encode(tarn::JSONWriter& writer) const {
#ifdef FAULT_writesNoJSON
    writer.encode(Tag());
#else
    writer.encode(value);
#endif
  }
};

Value decode() { return tarn::JSONDecoder().decode<Value>("{}"); }
tarn::Data encode(const Value& value) { return tarn::JSONEncoder().encode(value); }

#include <Platform/JSON/JSONDecoder.hpp>
#include <Platform/JSON/JSONEncoder.hpp>

#include <string>

struct Tag {
  Tag() = default;
};

struct Fixed {
  explicit Fixed(int number) : value(number) {}
  int value;
  static Fixed decode(tarn::JSONReader& reader) { return Fixed(reader.decode<int>()); }
  void encode(tarn::JSONWriter& writer) const { writer.encode(value); }
};

/// A type that JSON is read as, and that is written as JSON; each fault takes one thing away.
struct Value {
  std::string name;
  int count{};
#ifdef FAULT_memberWithoutCoding
  Tag tag{};
#endif
#ifdef FAULT_memberWithoutInitialValue
  Fixed fixed;
#endif
#ifdef FAULT_keyOfNoMember
  static constexpr tarn::JSONKeys codingKeys = {{"nmae", "n"}};
#else
  static constexpr tarn::JSONKeys codingKeys = {{"name", "n"}};
#endif
#ifdef FAULT_defaultOfNoMember
  static constexpr tarn::JSONMembers defaultedMembers = {"counts"};
#else
  static constexpr tarn::JSONMembers defaultedMembers = {"count"};
#endif
#ifdef FAULT_tooManyMembers
  int many[101]{};
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
tarn::Data encode() { return tarn::JSONEncoder().encode(Value()); }

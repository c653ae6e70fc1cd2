#include <Platform/Types/TypeName.hpp>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <optional>
#include <vector>

namespace tarn {
namespace {

enum class Form { unqualified, qualified };

constexpr std::string_view anonymousNamespace = "(anonymous namespace)";
constexpr std::string_view libraryNamespace = "tarn";
constexpr std::string_view libraryModule = "TarnService";

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// The end of the bracketed part that starts at `open`, after its closing bracket.
std::size_t endOfBrackets(std::string_view text, std::size_t open) {
  std::size_t depth = 0;
  for (std::size_t at = open; at < text.size(); ++at) {
    const char character = text[at];
    if (character == '<' || character == '(' || character == '[' || character == '{') ++depth;
    if (character == '>' || character == ')' || character == ']' || character == '}') {
      if (--depth == 0) return at + 1;
    }
  }
  return text.size();
}

// Whether a template argument is one that the standard library's templates fill in by default.
bool isDefaulted(std::string_view argument) {
  constexpr std::array<std::string_view, 6> defaults = {"std::allocator<", "std::char_traits<",
                                                        "std::less<",      "std::hash<",
                                                        "std::equal_to<",  "std::default_delete<"};
  for (const auto prefix : defaults) {
    if (argument.starts_with(prefix)) return true;
  }
  return false;
}

class NameWriter {
 public:
  NameWriter(std::string_view text, Form form) : text_(text), form_(form) {}

  // One type, up to an outer "," or a closing bracket.
  std::string type() {
    std::string name;
    while (at_ < text_.size()) {
      const char character = text_[at_];
      if (character == ',' || character == '>' || character == ')') break;
      if (text_.substr(at_).starts_with("::")) {
        at_ += 2;
        enterScope(name);
      } else if (text_.substr(at_).starts_with(anonymousNamespace)) {
        at_ += anonymousNamespace.size() + 2;
      } else if (character == '<') {
        name += arguments('>');
      } else if (character == '(') {
        name += arguments(')');
      } else if (character == '{' || character == '[') {
        const std::size_t end = endOfBrackets(text_, at_);
        name += text_.substr(at_, end - at_);
        at_ = end;
      } else {
        name += character;
        ++at_;
      }
    }
    while (!name.empty() && name.back() == ' ') name.pop_back();
    return name;
  }

 private:
  // `name` turns out to be the scope of what follows.
  void enterScope(std::string& name) const {
    const bool isFunction = name.find('(') != std::string::npos;
    if (form_ == Form::unqualified || isFunction) {
      name.clear();
    } else {
      if (name == libraryNamespace) name = libraryModule;
      name += '.';
    }
  }

  std::string arguments(char close) {
    std::string list(1, text_[at_++]);
    bool isFirst = true;
    while (at_ < text_.size() && text_[at_] != close) {
      if (text_[at_] == ',' || text_[at_] == ' ') {
        ++at_;
        continue;
      }
      const bool isSkipped = isDefaulted(text_.substr(at_));
      const std::size_t before = at_;
      const std::string argument = type();
      if (at_ == before) ++at_;  // a stray closing bracket of another kind
      if (isSkipped) continue;
      if (!isFirst) list += ", ";
      list += argument;
      isFirst = false;
    }
    if (at_ < text_.size()) ++at_;
    return list += close;
  }

  std::string_view text_;
  Form form_;
  std::size_t at_ = 0;
};

std::string writtenName(std::string_view demangled, Form form) {
  std::string text(demangled);
  replaceAll(text, "std::__cxx11::", "std::");
  replaceAll(text, "std::basic_string<char, std::char_traits<char>, std::allocator<char> >",
             "String");
  replaceAll(text, "std::basic_string_view<char, std::char_traits<char> >", "std::string_view");
  if (text == "std::string") return "String";
  return NameWriter(text, form).type();
}

std::string demangled(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  return status == 0 && name ? name.get() : type.name();
}

}  // namespace

std::string unqualifiedTypeName(const std::type_info& type) {
  return detail::unqualifiedName(demangled(type));
}

std::string qualifiedTypeName(const std::type_info& type) {
  return detail::qualifiedName(demangled(type));
}

namespace detail {

std::string unqualifiedName(std::string_view demangled) {
  return writtenName(demangled, Form::unqualified);
}

std::string qualifiedName(std::string_view demangled) {
  return writtenName(demangled, Form::qualified);
}

}  // namespace detail
}  // namespace tarn

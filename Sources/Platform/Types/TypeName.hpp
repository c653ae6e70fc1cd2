#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

namespace tarn {

/// The name of a type without namespaces and enclosing types, also inside "<>":
/// "JSONResponse<User>".
///
/// `std::string` is "String"; arguments that the standard library defaults (allocators,
/// comparisons) are left out. Callable from any thread.
std::string unqualifiedTypeName(const std::type_info& type);

/// The name of a type with its scopes as a dotted path: "shop.Item". The library's own namespace
/// reads "TarnService"; unnamed namespaces, and functions with all that encloses them, are left
/// out.
std::string qualifiedTypeName(const std::type_info& type);

/// The same for a static type, worked out once; the text lives as long as the process.
template <class T>
std::string_view unqualifiedTypeName() {
  static const std::string& name = *new std::string(unqualifiedTypeName(typeid(T)));
  return name;
}

template <class T>
std::string_view qualifiedTypeName() {
  static const std::string& name = *new std::string(qualifiedTypeName(typeid(T)));
  return name;
}

namespace detail {

/// The two forms for a name as the C++ demangler writes it.
std::string unqualifiedName(std::string_view demangled);
std::string qualifiedName(std::string_view demangled);

}  // namespace detail
}  // namespace tarn

#pragma once

#include <string>
#include <typeinfo>

/// Names of classes as they stand in the source. Safe to call from any thread.
namespace velora {

/// The name of the class that `type` describes, without namespaces, enclosing classes or functions,
/// and template arguments: "velora::XCGLogger" gives "XCGLogger", "ns::Box<int>" gives "Box",
/// "(anonymous namespace)::Foo" gives "Foo" and "f()::Local" gives "Local". A type without a name,
/// such as a lambda's, keeps the compiler's description of it. Where the runtime cannot demangle
/// the name, it is returned as it is.
std::string unqualifiedTypeName(const std::type_info& type);

/// The unqualified name of the class that `object` has at run time, when `T` is polymorphic; else
/// that of `T`.
template <class T>
std::string dynamicTypeName(const T& object) {
    return unqualifiedTypeName(typeid(object));
}

}  // namespace velora

#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <string_view>

#include <Velora_UserDefaults/Platform/TypeName.h>

namespace velora {
namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

bool opens(char character) {
    return character == '<' || character == '(' || character == '{' || character == '[';
}
bool closes(char character) {
    return character == '>' || character == ')' || character == '}' || character == ']';
}

/// What follows the last "::" outside brackets. Searched from the end, so that an enclosing function
/// whose own name has unpaired brackets, such as `operator<`, is never looked at.
std::string_view withoutEnclosingScopes(std::string_view name) {
    int depth = 0;
    for (std::size_t i = name.size(); i > 0; --i) {
        const char character = name[i - 1];
        if (closes(character)) {
            ++depth;
        } else if (opens(character)) {
            --depth;
        } else if (depth == 0 && character == ':') {
            return name.substr(i);
        }
    }
    return name;
}

/// `name` without template arguments and ABI tags.
std::string_view withoutArguments(std::string_view name) {
    return name.substr(0, name.find_first_of("<["));
}

}  // namespace

std::string unqualifiedTypeName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, Free> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status));
    if (demangled == nullptr) {
        return type.name();
    }
    const std::string_view name = withoutEnclosingScopes(demangled.get());
    // A lambda's description holds its parameters' types, which have brackets of their own.
    return std::string(name.starts_with('{') ? name : withoutArguments(name));
}

}  // namespace velora

#include <cstdlib>
#include <memory>
#include <typeinfo>

#include <Velora_UserDefaults/Platform/ExceptionGuard.h>

namespace velora {

std::string currentExceptionTypeName() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type->name(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? name.get() : type->name();
}

}  // namespace velora

// Readable C++ type names for error reports, and the last-resort report of an exception.
#include "runtime/demangle.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace quelt {

std::optional<std::string> demangle(const std::string& mangled)
{
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
    if (status != 0 || !name)
        return std::nullopt;
    return std::string(name.get());
}

std::string demangledTypeName(const std::type_info& type)
{
    const char* mangled = type.name();
    if (auto name = demangle(mangled))
        return *name;
    return mangled[0] == '*' ? mangled + 1 : mangled;
}

std::string fatalErrorText(const std::exception& e)
{
    return "Fatal error: " + demangledTypeName(typeid(e)) + "(" + e.what() + ")";
}

}  // namespace quelt

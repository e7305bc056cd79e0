// Readable C++ type names for error reports, and the last-resort report of an exception.
#pragma once

#include <exception>
#include <optional>
#include <string>
#include <typeinfo>

namespace quelt {

// The demangled form of a mangled symbol name, or nothing when it is not one.
std::optional<std::string> demangle(const std::string& mangled);

// The demangled name of `type` ("quelt::SystemError"); the raw name when demangling fails.
std::string demangledTypeName(const std::type_info& type);

// "Fatal error: <demangled dynamic type>(<what()>)", without a line end: the report of an
// exception that nothing caught, in the program and in a child that could not start.
std::string fatalErrorText(const std::exception& e);
// The same report for an exception of no known type.
inline constexpr const char* kUntypedErrorText = "UNSPECIFIED ERROR OCCURED";

}  // namespace quelt

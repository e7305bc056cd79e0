// Readable C++ type names for error reports.
#pragma once

#include <string>
#include <typeinfo>

namespace quelt {

// The demangled name of `type` ("quelt::SystemError"); the raw name when demangling fails.
std::string demangledTypeName(const std::type_info& type);

}  // namespace quelt

// The last-resort report of an exception that escapes a command handler.
#include "front/dispatch/report.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

#include "runtime/traceback.h"
#include "runtime/uerr.h"

namespace quelt {

namespace {

std::string demangledTypeName(const std::type_info& type)
{
    const char* mangled = type.name();
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    if (status == 0 && name)
        return name.get();
    return mangled[0] == '*' ? mangled + 1 : mangled;
}

}  // namespace

void reportException(const std::exception& e)
{
    uerr << "Fatal error: " << demangledTypeName(typeid(e)) << "(" << e.what() << ")" << std::endl;
    if (const auto* traceback = dynamic_cast<const Traceback*>(&e))
        uerr << *traceback << std::flush;
}

void reportUntypedException()
{
    uerr << "UNSPECIFIED ERROR OCCURED" << std::endl;
}

int runReportingExceptions(const std::function<int()>& body)
{
    try {
        return body();
    } catch (const std::exception& e) {
        reportException(e);
        return 1;
    } catch (...) {
        reportUntypedException();
        return 2;
    }
}

}  // namespace quelt

// The last-resort report of an exception that escapes a command handler.
#include "runtime/report.h"

#include <typeinfo>

#include "runtime/demangle.h"
#include "runtime/traceback.h"
#include "runtime/uerr.h"

namespace quelt {

void reportException(const std::exception& e)
{
    uerr << fatalErrorText(e) << std::endl;
    if (const auto* traceback = dynamic_cast<const Traceback*>(&e))
        uerr << *traceback << std::flush;
}

void reportUntypedException()
{
    uerr << kUntypedErrorText << std::endl;
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

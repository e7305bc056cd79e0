// The last-resort report of an exception: at the top of every program, and where a command
// reports a failed step and carries on.
#pragma once

#include <exception>
#include <functional>

namespace quelt {

// "Fatal error: <demangled dynamic type>(<what()>)" on quelt::uerr, then the traceback when
// the exception carries one.
void reportException(const std::exception& e);
// "UNSPECIFIED ERROR OCCURED" on quelt::uerr.
void reportUntypedException();

// Runs `body`; an escaping std::exception is reported and gives 1, anything else 2.
int runReportingExceptions(const std::function<int()>& body);

}  // namespace quelt

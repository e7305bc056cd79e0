// mailrig: one mail-system change per run, chosen by the first argument.
#include <syslog.h>

#include "front/dispatch/dispatcher.h"
#include "runtime/fd_owner.h"
#include "runtime/report.h"
#include "runtime/log.h"

int main(int argc, char* argv[])
{
    // Descriptors the caller left open are no business of the programs we start.
    quelt::markCloseOnExecFrom(3);
    quelt_log_init(nullptr, LOG_INFO, LOG_MAIL, LOG_PID | LOG_PERROR, "mailrig");
    return quelt::runReportingExceptions(
        [&] { return quelt::mail::postfix::mailrig_commands::do_main(argc, argv); });
}

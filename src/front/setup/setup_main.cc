// mailrig-setup: prepares a Postfix server for mailrig; safe to run again at any time.
#include <syslog.h>

#include <iostream>
#include <typeinfo>

#include "runtime/report.h"
#include "front/options/program_options_helper.h"
#include "front/setup/server_setup.h"
#include "runtime/fd_owner.h"
#include "runtime/log.h"
#include "runtime/uerr.h"

namespace mc = quelt::mail::postfix::mailrig_commands;
namespace setup = quelt::mail::postfix::setup;

int main(int argc, char* argv[])
{
    // Descriptors the caller left open are no business of the programs we start.
    quelt::markCloseOnExecFrom(3);
    quelt_log_init(nullptr, LOG_INFO, LOG_MAIL, LOG_PID | LOG_PERROR, "mailrig-setup");
    return quelt::runReportingExceptions([&] {
        mc::ProgramOptionsHelper options("prepare this Postfix server for mailrig",
                                         "mailrig-setup [--create-user] [--recreate-password-db]");
        options.add()("create-user", "create the mail user popuser when it is missing")(
            "recreate-password-db", "create the password database and its key anew (all passwords are lost)");
        options.parseOrExit(argc, argv);

        setup::SetupOptions wanted;
        if (options.has("create-user"))
            wanted.missingUser = setup::MissingUser::Create;
        if (options.has("recreate-password-db"))
            wanted.passwordDb = setup::PasswordDb::Recreate;
        try {
            const int changes = setup::prepareServer(wanted, std::cout);
            std::cout << (changes == 0 ? "mailrig-setup: nothing to change, the server is ready\n"
                                       : "mailrig-setup: the server is ready\n");
        } catch (const std::runtime_error& e) {
            // Our own refusals read as sentences; the stores' errors keep the full report.
            if (typeid(e) != typeid(std::runtime_error))
                throw;
            quelt::uerr << "Error: " << e.what() << std::endl;
            return 1;
        }
        return 0;
    });
}

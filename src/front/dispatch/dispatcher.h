// The command table and the dispatcher that runs one command per process.
#pragma once

#include <map>
#include <string>

namespace quelt::mail::postfix::mailrig_commands {

// A handler sees its command word as argv[0] and its options after it; its result is the
// exit status.
using CommandHandler = int (*)(int argc, char* argv[]);
using CommandTable = std::map<std::string, CommandHandler>;

// Every command word this build knows, legacy short forms included.
CommandTable buildCommandTable();

// Looks argv[1] up in `table`, selects the Postfix password-database location and runs the
// handler. A missing or unknown command word ends the process with the usage report.
int dispatch(const CommandTable& table, int argc, char* argv[]);

int do_main(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands

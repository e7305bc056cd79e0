// The handler commands: add, remove, enable and disable a mail handler in the handlers database,
// and the two retired ones that send the caller to the handler utility.
#pragma once

namespace quelt::mail::postfix::mailrig_commands {

int addHandler(int argc, char* argv[]);
int removeHandler(int argc, char* argv[]);
int enableHandler(int argc, char* argv[]);
int disableHandler(int argc, char* argv[]);
int updateHandler(int argc, char* argv[]);
int checkHandler(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands

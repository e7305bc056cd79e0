// The global help texts and the usage reports of the dispatcher.
#pragma once

#include <ostream>
#include <string>

namespace quelt::mail::postfix::mailrig_commands {

struct CommandDescription {
    const char* command;
    const char* synopsis;
    const char* description;
};

constexpr int kCommandDescriptionCount = 76;
extern const CommandDescription commandDescriptions[kCommandDescriptionCount];

// Each writes its text to `out` and ends the process with `status`.
[[noreturn]] void usageShort(int status, std::ostream& out);
[[noreturn]] void usageCommands(int status, std::ostream& out);
[[noreturn]] void usageLegacy(int status, std::ostream& out);
// "Error: <message>" (when there is one) and the short usage on standard error; status 1.
[[noreturn]] void wrongUsage(const std::string& message);

int usageShortCmd(int argc, char* argv[]);
int usageCommandsCmd(int argc, char* argv[]);
int usageLegacyCmd(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands

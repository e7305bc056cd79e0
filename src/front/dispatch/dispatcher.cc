// The dispatcher that runs one command per process.
#include "front/dispatch/dispatcher.h"

#include <iostream>

#include "auth/passwd_location.h"
#include "front/dispatch/help.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

constexpr int kPostfixPasswordLayout = 1;

}  // namespace

int dispatch(const CommandTable& table, int argc, char* argv[])
{
    if (argc < 2)
        wrongUsage("no command specified");
    const auto it = table.find(argv[1]);
    if (it == table.end()) {
        std::cerr << "Error: " << "invalid command " << argv[1] << '\n';
        usageShort(1, std::cerr);
    }
    mailAuthDBSelectStyle(kPostfixPasswordLayout);
    return it->second(argc - 1, argv + 1);
}

int do_main(int argc, char* argv[])
{
    return dispatch(buildCommandTable(), argc, argv);
}

}  // namespace quelt::mail::postfix::mailrig_commands

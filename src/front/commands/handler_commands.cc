// The handler commands: add, remove, enable and disable a mail handler in the handlers database,
// and the two retired ones that send the caller to the handler utility.
#include "front/commands/handler_commands.h"

#include <climits>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "front/options/program_options_helper.h"
#include "handlers/mail_handlers.h"
#include "model/names/name_checks.h"
#include "runtime/uerr.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

constexpr const char* kTypes = "(global|sender|recipient|sender-domain|recipient-domain)";
constexpr const char* kHooks = "(before-queue|before-local|before-remote)";
constexpr const char* kAddress = "handler-type-name";

enum class Operation { Add, Change };

// Declares the options of one command; `Add` adds the executable, context and priority.
void declare(ProgramOptionsHelper& options, Operation operation)
{
    static const std::string typeText = std::string("handler type ") + kTypes;
    static const std::string hookText = std::string("hook point ") + kHooks;
    options.add()("handler-name", po::value<std::string>(), "handler name", true)(
        "handler-type", po::value<std::string>(), typeText.c_str(), true)(
        kAddress, po::value<std::string>(), "handler type name");
    if (operation == Operation::Add)
        options.add()("executable", po::value<std::string>(), "handler executable", true)(
            "context", po::value<std::string>(), "handler context", true);
    options.add()("hook", po::value<std::string>(), hookText.c_str(), true);
    if (operation == Operation::Add)
        options.add()("priority", po::value<std::string>(), "handler priority", true);
}

// Free text that is stored as it is: a line break would split the handler runner's view of it.
std::string oneLine(const char* what, const std::string& value)
{
    if (value.find_first_of("\n\r") != std::string::npos)
        throw std::invalid_argument(std::string("invalid ") + what + " '" + quelt::names::printable(value) + "'");
    return value;
}

// A handler's address: a mail address, or a domain for the domain types and for switching
// every handler of a domain.
std::string checkedHandlerAddress(const std::string& value)
{
    return value.find('@') == std::string::npos ? quelt::names::checkedDomain(value)
                                                : quelt::names::checkedAddress(value);
}

// The record the options describe, without the address.
mh_data recordOf(const ProgramOptionsHelper& options)
{
    mh_data record;
    mh_data_init_ex(record);
    record.name = oneLine("handler name", options.get<std::string>("handler-name"));
    record.type = mh_get_type(options.get<std::string>("handler-type"));
    record.queue = mh_get_queue(options.get<std::string>("hook"));
    return record;
}

// The address option, which every type but global requires.
std::string requiredAddress(const ProgramOptionsHelper& options)
{
    if (!options.has(kAddress))
        options.optionError(MissingMandatoryOption(std::string("mandatory option \"--") + kAddress + "\" is not specified"));
    return options.get<std::string>(kAddress);
}

// Leading decimal digits; text that is no number gives 0.
int priorityOf(const std::string& text)
{
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

int switchHandler(int argc, char* argv[], int enabled)
{
    const char* const word = enabled ? "--enable-handler" : "--disable-handler";
    ProgramOptionsHelper options(enabled ? "enable a mail-handler" : "disable a mail-handler",
                                 std::string(word) + " --handler-name=<name> --handler-type=" + kTypes +
                                     " [--handler-type-name=<mailname>] --hook=" + kHooks);
    declare(options, Operation::Change);
    options.parseOrExit(argc, argv);

    mh_data record = recordOf(options);
    if (record.type == MH_TYPE_GLOBAL)
        return (enabled ? mh_db_enable(nullptr, record) : mh_db_disable(nullptr, record)) == 0 ? 0 : 1;
    const std::string address = requiredAddress(options);
    if (address == MH_ADDR_ALL)
        return mh_db_switch_by_name(nullptr, *record.name, enabled) == 0 ? 0 : 1;
    return mh_db_switch_by_addr(nullptr, checkedHandlerAddress(address), enabled) == 0 ? 0 : 1;
}

}  // namespace

int addHandler(int argc, char* argv[])
{
    ProgramOptionsHelper options("add a mail-handler", std::string("--add-handler --handler-name=<name> --handler-type=") +
                                                           kTypes + " [--handler-type-name=<mailname>] "
                                                           "--executable=<handler> --context=<context> --hook=" +
                                                           kHooks + " --priority=<number>");
    declare(options, Operation::Add);
    options.parseOrExit(argc, argv);

    mh_data record = recordOf(options);
    if (record.type != MH_TYPE_GLOBAL)
        record.address = checkedHandlerAddress(requiredAddress(options));
    else if (options.has(kAddress))
        record.address = options.get<std::string>(kAddress);  // only "all" or "all-recipients" pass
    record.executable = oneLine("handler executable", options.get<std::string>("executable"));
    record.context = oneLine("handler context", options.get<std::string>("context"));
    record.priority = priorityOf(options.get<std::string>("priority"));
    record.enabled = 1;
    return mh_db_add(nullptr, record) == 0 ? 0 : 1;
}

int removeHandler(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove a mail-handler", std::string("--remove-handler --handler-name=<name> --handler-type=") +
                                                              kTypes + " [--handler-type-name=<mailname>] --hook=" + kHooks);
    declare(options, Operation::Change);
    options.parseOrExit(argc, argv);

    mh_data record = recordOf(options);
    if (record.type != MH_TYPE_GLOBAL) {
        // "all" keeps its meaning of every address: the named handler of this type and hook
        // goes for all of them.
        const std::string address = requiredAddress(options);
        record.address = address == MH_ADDR_ALL ? address : checkedHandlerAddress(address);
    }
    return mh_db_remove(nullptr, record) == 0 ? 0 : 1;
}

int enableHandler(int argc, char* argv[])
{
    return switchHandler(argc, argv, 1);
}

int disableHandler(int argc, char* argv[])
{
    return switchHandler(argc, argv, 0);
}

int updateHandler(int, char*[])
{
    quelt::uerr << "ERROR: this action is deprecated. Please use the hookwarden utlitity" << std::endl;
    return 1;
}

int checkHandler(int, char*[])
{
    quelt::uerr << "ERROR: This action is deprecated. Please use the hookwarden utility" << std::endl;
    return 1;
}

}  // namespace quelt::mail::postfix::mailrig_commands

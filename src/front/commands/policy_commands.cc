// The unknown-recipient policy of a domain: bounce, catch-all, reject.
#include "front/commands/policy_commands.h"

#include <syslog.h>

#include "model/managers/domain_manager.h"
#include "model/names/name_checks.h"
#include "runtime/log.h"
#include "tables/batch_database_helper.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

std::string parseDomain(ProgramOptionsHelper& options, int argc, char* argv[])
{
    options.parseOrExit(argc, argv);
    return quelt::names::checkedDomain(options.get<std::string>("domain-name"));
}

ProgramOptionsHelper::OptionAppender domainOption(ProgramOptionsHelper& options)
{
    return options.add()("domain-name", po::value<std::string>(), "domain name", true);
}

std::string phraseOf(const ProgramOptionsHelper& options)
{
    return options.has("phrase") ? options.get<std::string>("phrase") : std::string();
}

}  // namespace

int setBounce(int argc, char* argv[])
{
    ProgramOptionsHelper options("set a domain bounce", "--set-bounce --domain-name=<domain_name> [--phrase=<phrase>]");
    domainOption(options)("phrase", po::value<std::string>(), "phrase");
    const std::string domain = parseDomain(options, argc, argv);

    DomainManager::setBounce(domain, phraseOf(options));
    return 0;
}

int setCatchAll(int argc, char* argv[])
{
    ProgramOptionsHelper options("set a domain catchall address",
                                 "--set-catchall --domain-name=<domain_name> --email=<email_address>");
    domainOption(options)("email", po::value<std::string>(), "catchall e-mail address", true);
    const std::string domain = parseDomain(options, argc, argv);
    const std::string target = quelt::names::checkedAddress(options.get<std::string>("email"));

    DomainManager::createCatchall(domain, target);
    return 0;
}

// Unknown mailnames of a domain without a catch-all or bounce record are rejected: setting the
// reject flag and clearing it both remove those records.
int setReject(int argc, char* argv[])
{
    ProgramOptionsHelper options("set domain reject flag", "--set-reject --domain-name=<domain-name>");
    domainOption(options);
    const std::string domain = parseDomain(options, argc, argv);

    DomainManager::removeCatchall(domain);
    return 0;
}

int removeReject(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove domain reject flag", "--unset-reject --domain-name=<domain-name>");
    domainOption(options);
    const std::string domain = parseDomain(options, argc, argv);

    DomainManager::removeCatchall(domain);
    return 0;
}

void formNotexistingMailOptions(ProgramOptionsHelper& options)
{
    options.add()("set-catchall", "set a domain catchall address")(
        "email", po::value<std::string>(), "catchall e-mail address")("set-bounce", "set a domain bounce")(
        "phrase", po::value<std::string>(), "phrase")("set-reject", "set domain reject flag");
}

void checkNotexistingMailOptions(const ProgramOptionsHelper& options)
{
    if (!options.has("set-bounce") && options.has("set-catchall") && options.has("email") &&
        !options.get<std::string>("email").empty())
        quelt::names::checkedAddress(options.get<std::string>("email"));
}

int processNotexistingMailnamesOptions(const ProgramOptionsHelper& options, const std::string& target)
{
    if (options.has("set-bounce") && !target.empty()) {
        BatchDatabaseHelper batch(true, true);
        DomainManager::setBounceFor(batch, {target}, phraseOf(options));
        return 0;
    }
    if (options.has("set-catchall") && !target.empty()) {
        const std::string email = options.has("email") ? options.get<std::string>("email") : std::string();
        if (email.empty())
            throw MissingMandatoryOption("mandatory option \"--email\" is not specified");
        BatchDatabaseHelper batch(true, true);
        DomainManager::createCatchallFor(batch, {target}, quelt::names::checkedAddress(email));
        return 0;
    }
    // A name without catch-all or bounce records rejects unknown mailnames: nothing to write.
    if (options.has("set-reject"))
        return 0;
    quelt_log(LOG_ERR, "Action for notexisting mail names is not specified (--set-bounce/--set-catchall/--set-reject)");
    return 1;
}

}  // namespace quelt::mail::postfix::mailrig_commands

// Domain aliases and DomainKeys.
#include "front/commands/domain_alias_commands.h"

#include <unistd.h>

#include <optional>
#include <string>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>

#include "auth/panel_passwd.h"
#include "config/files/domain_keys.h"
#include "front/commands/policy_commands.h"
#include "front/options/program_options_helper.h"
#include "handlers/mail_handlers.h"
#include "model/managers/domain_manager.h"
#include "model/names/name_checks.h"
#include "runtime/uerr.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

const std::string& value(const ProgramOptionsHelper& options, const char* name)
{
    return options.get<std::string>(name);
}

std::string checkedOption(const ProgramOptionsHelper& options, const char* name)
{
    return quelt::names::checkedDomain(value(options, name));
}

// "a.example,b.example": each name checked, the list joined again as the key files take it.
std::string checkedDomainList(const std::string& list)
{
    std::vector<std::string> names;
    boost::algorithm::split(names, list, [](char c) { return c == ','; });
    for (std::string& name : names)
        name = quelt::names::checkedDomain(name);
    return boost::algorithm::join(names, ",");
}

// The handlers of the alias's addresses ("<local>@alias"), then those of the alias itself, as
// a removed domain loses them: what a handler is named has nothing to do with where it works.
// The second step is skipped when the first failed; a negative result is a failure.
int removeHandlersOf(const std::string& alias)
{
    if (mh_db_remove_all(nullptr, alias) < 0)
        return -1;
    return mh_db_remove_addr(nullptr, alias);
}

}  // namespace

int addDomainAlias(int argc, char* argv[])
{
    ProgramOptionsHelper options("add a domain alias",
                                 "--add-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name> "
                                 "<--set-bounce 'text'| --set-catchall 'email' | --set-reject>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "domain-alias-name", po::value<std::string>(), "domain alias name", true);
    formNotexistingMailOptions(options);
    options.parseOrExit(argc, argv);
    const std::string domain = checkedOption(options, "domain-name");
    const std::string alias = checkedOption(options, "domain-alias-name");
    checkNotexistingMailOptions(options);

    DomainManager::createDomainAlias(domain, alias);
    if (mh_db_clone(nullptr, std::nullopt, domain, std::nullopt, alias) < 0)
        uerr << "WARNING: unable to clone all mail handlers for " << alias << std::endl;
    if (clone_domain_key(domain, alias) != 0)
        uerr << "WARNING: cannot clone domain key for " << alias << std::endl;
    if (add_domain_auth_alias(domain, alias) == -1)
        return 1;
    return processNotexistingMailnamesOptions(options, alias);
}

int removeDomainAlias(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "remove a domain alias",
        "--del-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "domain-alias-name", po::value<std::string>(), "domain alias name", true);
    options.parseOrExit(argc, argv);
    // The domain is not needed to remove its alias; it is still checked like every name.
    checkedOption(options, "domain-name");
    const std::string alias = checkedOption(options, "domain-alias-name");

    DomainManager::removeDomainAlias(alias);
    if (removeHandlersOf(alias) < 0)
        uerr << "WARNING: unable to properly remove mail handlers for " << alias << std::endl;
    remove_domain_key(alias);
    return rm_domain_auth_alias(alias) == -1 ? 1 : 0;
}

int renameDomainAlias(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "rename a given domain alias",
        "--rename-domain-alias --domain-name=<domain_name> --old-domain-alias-name=<old_domain_alias_name> "
        "--new-domain-alias-name=<new_domain_alias_name> <--set-bounce 'text'| --set-catchall 'email' | --set-reject>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "old-domain-alias-name", po::value<std::string>(), "old domain alias name", true)(
        "new-domain-alias-name", po::value<std::string>(), "new domain alias name", true);
    formNotexistingMailOptions(options);
    options.parseOrExit(argc, argv);
    const std::string domain = checkedOption(options, "domain-name");
    const std::string oldAlias = checkedOption(options, "old-domain-alias-name");
    const std::string newAlias = checkedOption(options, "new-domain-alias-name");
    checkNotexistingMailOptions(options);

    DomainManager::renameDomainAlias(oldAlias, newAlias);
    if (mh_db_clone(nullptr, std::nullopt, oldAlias, std::nullopt, newAlias) < 0 || removeHandlersOf(oldAlias) < 0)
        uerr << "WARNING: unable to properly re-assign mail handlers from " << oldAlias << " to " << newAlias
             << std::endl;
    if (clone_domain_key(oldAlias, newAlias) != 0)
        uerr << "WARNING: cannot create domainkey for " << newAlias << '\n';
    remove_domain_key(oldAlias);
    // The old name's rows go even when the new name's could not all be written.
    const bool added = add_domain_auth_alias(domain, newAlias) != -1;
    const bool removed = rm_domain_auth_alias(oldAlias) != -1;
    if (!added || !removed)
        return 1;
    return processNotexistingMailnamesOptions(options, newAlias);
}

int setDomainKey(int argc, char* argv[])
{
    ProgramOptionsHelper options("set DomainKey",
                                 "--set-domain-key --domain-name=<domain,domain,... > --file-name=<full_file_name>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "file-name", po::value<std::string>(), "full path to uploaded key", true);
    options.parseOrExit(argc, argv);
    const std::string domains = checkedDomainList(value(options, "domain-name"));
    const std::string& keyFile = value(options, "file-name");

    const int result = set_domain_key(domains, keyFile);
    if (result == -1)
        return 1;
    // The uploaded copy has served its purpose once every domain holds the key.
    if (result == 0)
        ::unlink(keyFile.c_str());
    return 0;
}

int removeDomainKey(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove DomainKey", "--remove-domain-key --domain-name=<domain,domain,...>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true);
    options.parseOrExit(argc, argv);
    const std::string domains = checkedDomainList(value(options, "domain-name"));

    return remove_domain_key(domains) == -1 ? 1 : 0;
}

}  // namespace quelt::mail::postfix::mailrig_commands

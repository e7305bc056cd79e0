// The alias, redirect and autoresponder commands of a mailname.
#include "front/commands/alias_commands.h"

#include <string>

#include "auth/panel_passwd.h"
#include "auth/passwd_db.h"
#include "front/options/program_options_helper.h"
#include "handlers/autoresponder.h"
#include "handlers/mail_handlers.h"
#include "model/managers/mailname_manager.h"
#include "model/names/name_checks.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

// The checked names of a command: domain, mailname and the option after them (an alias's
// local part, or a redirect target in its ASCII form).
struct Names {
    std::string domain;
    std::string mailname;
    std::string other;
};

enum class Other { Alias, RedirectEmail };

// Declares the three options, parses, and checks each name before any store can see it. The
// panel's names pass unchanged but for case; a mailname or alias that could break a table
// line or leave the domain's folder is refused like an invalid mailname.
Names parseNames(ProgramOptionsHelper& options, Other other, int argc, char* argv[])
{
    const char* otherName = other == Other::Alias ? "alias" : "redirect-email";
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "mailname", po::value<std::string>(), "mailname", true)(
        otherName, po::value<std::string>(), other == Other::Alias ? "alias email" : "redirect email", true);
    options.parseOrExit(argc, argv);
    Names names;
    names.domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    names.mailname = quelt::names::checkedMailname(options.get<std::string>("mailname"));
    const std::string& value = options.get<std::string>(otherName);
    names.other = other == Other::Alias ? quelt::names::checkedMailname(value) : quelt::names::checkedAddress(value);
    return names;
}

// The autoresponder commands take a list of mailnames, which the hook splits and checks name
// by name: only the domain is checked here.
int autoresponder(const char* description, const char* usageLine, int action, int argc, char* argv[])
{
    ProgramOptionsHelper options(description, usageLine);
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "mailname", po::value<std::string>(), "mailname", true);
    options.parseOrExit(argc, argv);
    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    return autoresponder_action(options.get<std::string>("mailname").c_str(), domain.c_str(), action);
}

}  // namespace

int addAlias(int argc, char* argv[])
{
    ProgramOptionsHelper options("add alias for a given mailname",
                                 "--add-alias --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>");
    const Names n = parseNames(options, Other::Alias, argc, argv);

    MailnameManager::createMailAlias(n.domain, n.mailname, n.other);
    if (mailAuthClone(n.mailname, n.domain, n.other, n.domain) == -1)
        return 1;
    return mh_db_clone(nullptr, n.mailname, n.domain, n.other, n.domain);
}

int removeAlias(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "remove alias for a given mailname",
        "--remove-alias --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>");
    const Names n = parseNames(options, Other::Alias, argc, argv);

    MailnameManager::removeMailAlias(n.domain, n.mailname, n.other);
    if (rm_mname_from_domains(n.other, n.domain) == -1)
        return 1;
    return mh_db_remove_addr(nullptr, n.other + "@" + n.domain);
}

int addRedirect(int argc, char* argv[])
{
    ProgramOptionsHelper options("add a redirect",
                                 "--add-redirect --domain-name=<domain_name> --mailname=<mail_name> --redirect-email=<email>");
    const Names n = parseNames(options, Other::RedirectEmail, argc, argv);

    MailnameManager::addForward(n.domain, n.mailname, n.other);
    return 0;
}

int removeRedirect(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "remove a given redirect",
        "--remove-redirect --domain-name=<domain_name> --mailname=<mail_name> --redirect-email=<email>");
    const Names n = parseNames(options, Other::RedirectEmail, argc, argv);

    MailnameManager::removeForward(n.domain, n.mailname, n.other);
    return 0;
}

int addAutoresponder(int argc, char* argv[])
{
    return autoresponder("add autoresponder for a given mailname",
                         "--set-autoresponder --domain-name=<domain_name> --mailname=<mail_name>", AUTORESPONDER_ADD,
                         argc, argv);
}

int removeAutoresponder(int argc, char* argv[])
{
    return autoresponder("remove autoresponder for a given mailname",
                         "--reset-autoresponder --domain-name=<domain_name> --mailname=<mail_name>",
                         AUTORESPONDER_REMOVE, argc, argv);
}

}  // namespace quelt::mail::postfix::mailrig_commands

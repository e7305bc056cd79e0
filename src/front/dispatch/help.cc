// The global help texts and the usage reports of the dispatcher.
#include "front/dispatch/help.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>

namespace quelt::mail::postfix::mailrig_commands {

const CommandDescription commandDescriptions[kCommandDescriptionCount] = {
    {"--add-mailname",
     "--domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]",
     "adds mailname to the mail domain. Optionally sets the mailbox quota"},
    {"--remove-mailname",
     "--domain-name=<domain_name> --mailname=<mail_name>",
     "removes mailname to the mail domain"},
    {"--rename-mailname",
     "--domain-name=<domain_name> --old-mailname=<old_mail_name> --new-mailname=<new_mail_name>",
     "renames a mailname in the mail domain. Optionally sets the mailbox password.\n        The noncrypted password is transferred in the environment variable ZVT_PASSWORD,\n        or crypted password is transferred in the environment variable ZVT_CRYPTED_PASSWORD"},
    {"--add-mailbox",
     "--domain-name=<domain_name> --mailname=<mail_name>",
     "adds a mailbox for a given mailname.\n        The noncrypted password is transferred in the environment variable ZVT_PASSWORD,\n        or crypted password is transferred in the environment variable ZVT_CRYPTED_PASSWORD"},
    {"--remove-mailbox",
     "--domain-name=<domain_name> --mailname=<mail_name>",
     "removes a mailbox for a given mailname."},
    {"--get-mailbox-size",
     "[--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>",
     "returns the size of mailbox for a mailname."},
    {"--set-password",
     "--domain-name=<domain_name> --mailname=<mail_name>",
     "sets the password for a mailname\n        The noncrypted password is transferred in the environment variable ZVT_PASSWORD,\n        or crypted password is transferred in the environment variable ZVT_CRYPTED_PASSWORD"},
    {"--set-mailbox-disk-quota",
     "--domain-name=<domain_name> --mailname=<mail_name> --disk-quota=<quota>",
     "sets the disk quota for a mailbox. Negative quota == Unlimited"},
    {"--add-redirect",
     "--domain-name=<domain_name> --mailname=<mail_name> --redirect-email=<email>",
     "adds mail redirect from the mailname"},
    {"--remove-redirect",
     "--domain-name=<domain_name> --mailname=<mail_name> --redirect-email=<email>",
     "removes mail redirect from the mailname"},
    {"--set-autoresponder",
     "--domain-name=<domain_name> --mailname=<mail_name>",
     "enables autoresponder for mailname"},
    {"--reset-autoresponder",
     "--domain-name=<domain_name> --mailname=<mail_name>",
     "disables autoresponder for mailname"},
    {"--add-alias",
     "--domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>",
     "adds an alias for mailname"},
    {"--remove-alias",
     "--domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>",
     "removes an alias for mailname"},
    {"--add-domain",
     "--domain-name=<domain_name> [--disk-quota=<quota>]",
     "adds mail domain"},
    {"--remove-domain",
     "--domain-name=<domain_name>",
     "removes mail domain"},
    {"--turn-on-domain",
     "--domain-name=<domain_name>",
     "enables mail domain"},
    {"--turn-off-domain",
     "--domain-name=<domain_name>",
     "disables mail domain"},
    {"--set-domain-disk-quota",
     "--domain-name=<domain_name> --disk-quota=<quota>",
     "sets a disk space quota to a mail domain. Negative quota == Unlimited"},
    {"--add-badmailfrom",
     "--domain-name=<domain_name>",
     "adds mail domain to the blacklist"},
    {"--remove-badmailfrom",
     "--domain-name=<domain_name>",
     "removes mail domain from the blacklist"},
    {"--set-bounce",
     "--domain-name=<domain_name> [--phrase=<phrase>]",
     "letters sent to a nonexistent mailname, are bounced with this phrase"},
    {"--set-catchall",
     "--domain-name=<domain_name> --email=<email_address>",
     "letters sent to a nonexistent mailname, are forwarded to this email"},
    {"--set-reject",
     "--domain-name=<domain-name>",
     "letters sent to a nonexistent mailname are rejected"},
    {"--unset-reject",
     "--domain-name=<domain-name>",
     "do not reject letters sent to a nonexistent mailname"},
    {"--add-whitelist",
     "--ip-address=<ip_address> --netmask=<netmask>",
     "adds the subnet to the white-list"},
    {"--remove-whitelist",
     "--ip-address=<ip_address> --netmask=<netmask>",
     "removes the subnet from the white-list"},
    {"--set-maps-protection",
     "[--maps-zones=<zone1,zone2,...,zoneN>]",
     "installs MAPS protection. Absent list of zones == disabled"},
    {"--set-accounts-format",
     "--account-format=(\"compound\" | \"both\")",
     "sets the POP3/IMAP accounts format"},
    {"--features",
     "",
     "returns PHP code which reflects state of several features support in mailrig.\n        Currently they are auth-type and format"},
    {"--set-max-letter-size",
     "--size=<size_in_bytes>",
     "sets maximum letter size"},
    {"--get-max-letter-size",
     "",
     "gets maximum letter size"},
    {"--get-mailbox-size-limit",
     "",
     "gets size limit of mailbox"},
    {"--list-attachments",
     "[--in-blocks] [--fullname] --domain-name=<domain_name> (--mailname=<mail_name>|--mail-all)",
     "lists attachments for <mail_name>"},
    {"--add-attachment",
     "--domain-name=<domain_name> --mailname=<mail_name> --file-name=<full_file_name> --attachment-file-name=<attachment_file_name>",
     "adds attachment for <mail_name>"},
    {"--remove-attachment",
     "--domain-name=<domain_name> --mailname=<mail_name> --attachment-file-name=<attachment_file_name>",
     "remove attachment from <mail_name>"},
    {"--update-spf",
     "[--spf-behavior=spf_behavior] [--spf-rules=spf_rules] [--spf-guess=spf_guess] [--spf-exp=<spf_exp>]",
     "updates SPF support configuration files"},
    {"--add-domain-alias",
     "--domain-name=<domain_name> --domain-alias-name=<domain_alias_name>",
     "adds alias for <domain_name>"},
    {"--del-domain-alias",
     "--domain-name=<domain_name> --domain-alias-name=<domain_alias_name>",
     "removes alias for <domain_name>"},
    {"--rename-domain-alias",
     "--domain-name=<domain_name> --old-domain-alias-name=<old_domain_alias_name> --new-domain-alias-name=<new_domain_alias_name>",
     "renames alias for <domain_name>"},
    {"--add-handler",
     "--handler-name=<name> --handler-type=(global|sender|recipient|sender-domain|recipient-domain) --handler-type-name=<name> --executable=<handler> --context=<context> --hook=(before-queue|before-local|before-remote) --priority=<number>",
     "adds a mail-handler"},
    {"--update-handler",
     "--handler-name=<name> --handler-type=(global|sender|recipient|sender-domain|recipient-domain) --executable=<handler> --context=<context> --hook=(before-queue|before-local|before-remote) --priority=<number>",
     "updates a given mail-handler"},
    {"--remove-handler",
     "--handler-name=<name> --handler-type=(global|sender|recipient|sender-domain|recipient-domain) --handler-type-name=<name> --hook=(before-queue|before-local|before-remote)",
     "removes a given mail-handler"},
    {"--disable-handler",
     "--handler-name=<name> --handler-type=(global|sender|recipient|sender-domain|recipient-domain) --handler-type-name=<name> --hook=(before-queue|before-local|before-remote)",
     "disables a given mail-handler"},
    {"--enable-handler",
     "--handler-name=<name> --handler-type=(global|sender|recipient|sender-domain|recipient-domain) --handler-type-name=<name> --hook=(before-queue|before-local|before-remote)",
     "enables a given mail-handler"},
    {"--check-handler",
     "--handler-name=<name> --handler-type=(global|sender|recipient|sender-domain|recipient-domain) --handler-type-name=<name> --hook=(before-queue|before-local|before-remote)",
     "checks if a given mail-handler exists"},
    {"--set-domain-key",
     "--domain-name=<domain_name> --file-name=<full_file_name>",
     "sets DomainKey for <domain_name>"},
    {"--remove-domain-key",
     "--domain-name=<domain_name>",
     "removes DomainKey for <domain_name>"},
    {"--set-mail-params",
     "[--relayclient] [--smtpauth] [--popauth] [--poplock-time=<time_in_seconds>] [--shortnames]",
     "sets relaying & mailnames parameters"},
    {"--add-domain-to-sender-transport",
     "--domain-name=<domain> [--ip4-addr=<ip4_address>] [--ip6-addr=<ip6_address>]",
     "add sender transport for domain. At least one ip address should be specified"},
    {"--remove-domain-from-sender-transport",
     "--domain-name=<domain>",
     "remove domain from sender transports"},
    {"--remove-sender-transport",
     "--ip-addr=<ip_address>",
     "remove sender transport"},
    {"--start-service",
     "[--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|milter|all}] [--mail-component=...]",
     "starts entire mail service or one or more of its components"},
    {"--stop-service",
     "[--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|milter|all}] [--mail-component=...]",
     "stops entire mail service or its components"},
    {"--restart-service",
     "[--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|milter|all}] [--mail-component=...]",
     "restarts entire mail service or one or more of its components"},
    {"--reload-service",
     "[--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|all}] [--mail-component=...]",
     "reloads configuration for all or selected mail components"},
    {"--status-service",
     "[--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|milter|all}] [--mail-component=...]",
     "returns status of entire mail service or its subcomponents"},
    {"-p, --start-smtpd",
     "",
     "starts SMTP server (obsoleted, use --start-service --mail-component=smtp --mail-component=smtps)"},
    {"-o, --stop-smtpd",
     "",
     "stops SMTP server (obsoleted, use --stop-service --mail-component=smtp --mail-component=smtps)"},
    {"-r, --restart-smtpd",
     "",
     "restarts SMTP server (obsoleted, use --restart-service --mail-component=smtp --mail-component=smtps)"},
    {"-s, --status-smtpd",
     "",
     "SMTP server status (obsoleted, use --status-service --mail-component=smtp --mail-component=smtps)"},
    {"-l, --start-qmail-send",
     "",
     "starts qmail (without xinetd), (obsoleted, use --start-service --mail-component=mta)"},
    {"-m, --stop-qmail-send",
     "",
     "stops qmail(without xinetd), (obsoleted, use --stop-service --mail-component=mta)"},
    {"-i, --start-maild",
     "",
     "starts courier-imap (obsoleted, use --start-service --mail-component=imap --mail-component=pop3 --mail-component=imaps --mail-component=pop3s)"},
    {"-t, --stop-maild",
     "",
     "stops courier-imap (obsoleted, use --stop-service --mail-component=imap --mail-component=pop3 --mail-component=imaps --mail-component=pop3s)"},
    {"-z, --restart-maild",
     "",
     "restarts courier-imap (obsoleted, use --restart-service --mail-component=imap --mail-component=pop3 --mail-component=imaps --mail-component=pop3s)"},
    {"-e, --status-maild",
     "",
     "returns courier-imap status (obsoleted, use --status-service --mail-component=imap --mail-component=pop3 --mail-component=imaps --mail-component=pop3s)"},
    {"--start-milter",
     "",
     "starts Quelt Postfix milter filter (obsoleted, use --start-service --mail-component=milter)"},
    {"--stop-milter",
     "",
     "stops Quelt Postfix milter filter (obsoleted, use --stop-service --mail-component=milter)"},
    {"--restart-milter",
     "",
     "restarts Quelt Postfix milter filter (obsoleted, use --restart-service --mail-component=milter)"},
    {"--status-milter",
     "",
     "returns Quelt Postfix milter filter status (obsoleted, use --status-service --mail-component=milter)"},
    {"-a, --enable-message-submission",
     "",
     "enables message submission (obsoleted, use --start-service --mail-component=submission"},
    {"-b, --disable-message-submission",
     "",
     "disables message submission (obsoleted, use --stop-service --mail-component=submission)"},
    {"--help-commands",
     "",
     "displays mailrig commands list and exit"},
    {"--help-legacy",
     "",
     "displays legacy mailrig help and exit"},
    {"-h, --help",
     "",
     "displays mailrig usage summary and exit"},
};

void usageShort(int status, std::ostream& out)
{
    out << "Usage: mailrig <COMMAND> <COMMAND OPTIONS...>\n"
        << "\t for a complete list of commands use ``mailrig --help-commands''\n"
        << "\t for help on syntax for a particular command use ``mailrig <COMMAND> --help''\n"
        << "\t for legacy complete help use ``mailrig --help-legacy''\n";
    out.flush();
    std::exit(status);
}

void usageCommands(int status, std::ostream& out)
{
    std::size_t width = 0;
    for (const auto& row : commandDescriptions)
        width = std::max(width, std::strlen(row.command));
    width += 2;
    out << "Mailrig commands:\n";
    for (const auto& row : commandDescriptions)
        out << std::left << std::setw(static_cast<int>(width)) << row.command << row.description << '\n';
    out.flush();
    std::exit(status);
}

void usageLegacy(int status, std::ostream& out)
{
    out << "Usage: mailrig [OPTIONS]... \n";
    for (const auto& row : commandDescriptions)
        out << "  " << row.command << ' ' << row.synopsis << '\n' << "        " << row.description << '\n';
    out.flush();
    std::exit(status);
}

void wrongUsage(const std::string& message)
{
    if (!message.empty())
        std::cerr << "Error: " << message << '\n';
    usageShort(1, std::cerr);
}

int usageShortCmd(int, char*[])
{
    usageShort(0, std::cout);
}

int usageCommandsCmd(int, char*[])
{
    usageCommands(0, std::cout);
}

int usageLegacyCmd(int, char*[])
{
    usageLegacy(0, std::cout);
}

}  // namespace quelt::mail::postfix::mailrig_commands

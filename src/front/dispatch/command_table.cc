// Every command word of this build and its handler.
#include "front/commands/domain_commands.h"
#include "front/commands/service_commands.h"
#include "front/commands/settings_commands.h"
#include "front/dispatch/dispatcher.h"
#include "front/dispatch/help.h"

namespace quelt::mail::postfix::mailrig_commands {

CommandTable buildCommandTable()
{
    return CommandTable{
        {"--add-domain", addDomain},
        {"--remove-domain", removeDomain},
        {"--turn-on-domain", enableDomain},
        {"--turn-off-domain", disableDomain},
        {"--set-domain-disk-quota", setDomainDiskQuota},
        {"--add-badmailfrom", addBadMailFrom},
        {"--remove-badmailfrom", removeBadMailFrom},
        {"--add-whitelist", addWhiteList},
        {"--remove-whitelist", removeWhiteList},
        {"--features", printFeatures},
        {"--get-max-letter-size", getMaxLetterSize},
        {"--get-mailbox-size-limit", getMailboxLimit},
        {"--update-spf", updateSPF},
        {"--set-mail-params", setMailParams},
        {"--set-max-letter-size", setMaxLetterSize},
        {"--set-maps-protection", setMapsProtection},
        {"--set-accounts-format", setAccountsFormat},
        {"--start-service", startService},
        {"--stop-service", stopService},
        {"--restart-service", restartService},
        {"--reload-service", reloadService},
        {"--status-service", statusService},
        {"-p", startSMTPD},
        {"--start-smtpd", startSMTPD},
        {"-o", stopSMTPD},
        {"--stop-smtpd", stopSMTPD},
        {"-r", restartSMTPD},
        {"--restart-smtpd", restartSMTPD},
        {"-s", statusMTA},
        {"--status-smtpd", statusMTA},
        {"-l", startMTA},
        {"--start-qmail-send", startMTA},
        {"-m", stopMTA},
        {"--stop-qmail-send", stopMTA},
        {"-i", startIMAP},
        {"--start-maild", startIMAP},
        {"-t", stopIMAP},
        {"--stop-maild", stopIMAP},
        {"-z", restartIMAP},
        {"--restart-maild", restartIMAP},
        {"-e", statusIMAP},
        {"--status-maild", statusIMAP},
        {"--start-milter", startMilter},
        {"--stop-milter", stopMilter},
        {"--restart-milter", restartMilter},
        {"--status-milter", statusMilter},
        {"-a", enableSubmission},
        {"--enable-message-submission", enableSubmission},
        {"-b", disableSubmission},
        {"--disable-message-submission", disableSubmission},
        {"-h", usageShortCmd},
        {"--help", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
}

}  // namespace quelt::mail::postfix::mailrig_commands

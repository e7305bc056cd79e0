// Every command word of this build and its handler.
#include "front/commands/alias_commands.h"
#include "front/commands/attachment_commands.h"
#include "front/commands/domain_commands.h"
#include "front/commands/handler_commands.h"
#include "front/commands/mailname_commands.h"
#include "front/commands/service_commands.h"
#include "front/dispatch/dispatcher.h"
#include "front/dispatch/help.h"

namespace quelt::mail::postfix::mailrig_commands {

CommandTable buildCommandTable()
{
    return CommandTable{
        {"--add-mailname", addMailname},
        {"--remove-mailname", removeMailname},
        {"--rename-mailname", renameMailname},
        {"--add-mailbox", addMailbox},
        {"--remove-mailbox", removeMailbox},
        {"--get-mailbox-size", getMailboxSize},
        {"--set-password", setPassword},
        {"--set-mailbox-disk-quota", setMailboxDiskQuota},
        {"--add-redirect", addRedirect},
        {"--remove-redirect", removeRedirect},
        {"--set-autoresponder", addAutoresponder},
        {"--reset-autoresponder", removeAutoresponder},
        {"--add-alias", addAlias},
        {"--remove-alias", removeAlias},
        {"--add-domain", addDomain},
        {"--remove-domain", removeDomain},
        {"--turn-on-domain", enableDomain},
        {"--turn-off-domain", disableDomain},
        {"--set-domain-disk-quota", setDomainDiskQuota},
        {"--add-attachment", addAttachment},
        {"--add-handler", addHandler},
        {"--check-handler", checkHandler},
        {"--disable-handler", disableHandler},
        {"--disable-message-submission", disableSubmission},
        {"--enable-handler", enableHandler},
        {"--enable-message-submission", enableSubmission},
        {"--list-attachments", listAttachments},
        {"--reload-service", reloadService},
        {"--remove-attachment", removeAttachment},
        {"--remove-handler", removeHandler},
        {"--restart-maild", restartIMAP},
        {"--restart-milter", restartMilter},
        {"--restart-service", restartService},
        {"--restart-smtpd", restartSMTPD},
        {"--start-maild", startIMAP},
        {"--start-milter", startMilter},
        {"--start-qmail-send", startMTA},
        {"--start-service", startService},
        {"--start-smtpd", startSMTPD},
        {"--status-maild", statusIMAP},
        {"--status-milter", statusMilter},
        {"--status-service", statusService},
        {"--status-smtpd", statusMTA},
        {"--stop-maild", stopIMAP},
        {"--stop-milter", stopMilter},
        {"--stop-qmail-send", stopMTA},
        {"--stop-service", stopService},
        {"--stop-smtpd", stopSMTPD},
        {"--update-handler", updateHandler},
        {"-a", enableSubmission},
        {"-b", disableSubmission},
        {"-e", statusIMAP},
        {"-i", startIMAP},
        {"-l", startMTA},
        {"-m", stopMTA},
        {"-o", stopSMTPD},
        {"-p", startSMTPD},
        {"-r", restartSMTPD},
        {"-s", statusMTA},
        {"-t", stopIMAP},
        {"-z", restartIMAP},
        {"-h", usageShortCmd},
        {"--help", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
}

}  // namespace quelt::mail::postfix::mailrig_commands

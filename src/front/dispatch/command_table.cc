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
        {"--list-attachments", listAttachments},
        {"--add-attachment", addAttachment},
        {"--remove-attachment", removeAttachment},
        {"--add-handler", addHandler},
        {"--update-handler", updateHandler},
        {"--remove-handler", removeHandler},
        {"--disable-handler", disableHandler},
        {"--enable-handler", enableHandler},
        {"--check-handler", checkHandler},
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

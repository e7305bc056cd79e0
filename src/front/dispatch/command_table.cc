// Every command word of this build and its handler.
#include "front/commands/attachment_commands.h"
#include "front/commands/domain_commands.h"
#include "front/commands/handler_commands.h"
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
        {"--list-attachments", listAttachments},
        {"--add-attachment", addAttachment},
        {"--remove-attachment", removeAttachment},
        {"--add-handler", addHandler},
        {"--update-handler", updateHandler},
        {"--remove-handler", removeHandler},
        {"--disable-handler", disableHandler},
        {"--enable-handler", enableHandler},
        {"--check-handler", checkHandler},
        {"-h", usageShortCmd},
        {"--help", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
}

}  // namespace quelt::mail::postfix::mailrig_commands

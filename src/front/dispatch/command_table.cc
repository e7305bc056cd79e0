// Every command word of this build and its handler.
#include "front/commands/domain_commands.h"
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
        {"-h", usageShortCmd},
        {"--help", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
}

}  // namespace quelt::mail::postfix::mailrig_commands

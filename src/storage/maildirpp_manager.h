// Maildir++ quotas of mailboxes and domains as operations of the shared mailbox-tree manager.
#pragma once

#include <string>

#include "storage/maildir_manager.h"

namespace quelt::mail {

// The shared instance behind MaildirManager::getInstance(). Failures throw FSError.
class MaildirPPManager : public MaildirManager {
public:
    // The shared instance, with the popuser ids refreshed.
    static MaildirPPManager& getInstance();

    // Writes the mailbox's maildirsize: negative quota unlimited, attachments subtracted, a
    // limit that leaves nothing is one byte. Throws FSError "getcwd", "chdir" (with the home)
    // or "create maildirsize" (with the Maildir, error number 0).
    void setMailboxQuota(const std::string& domain, const std::string& mailname, long long quota);

private:
    MaildirPPManager() = default;
    ~MaildirPPManager() = default;
};

}  // namespace quelt::mail

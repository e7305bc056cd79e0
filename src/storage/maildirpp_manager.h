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
    // Resets the mailbox to its domain's mailbox limit (panel database). Throws FSError
    // "unable to remove quota" with the home.
    void removeMailboxQuota(const std::string& domain, const std::string& mailname);

    // The quota for every mailbox of the domain without one of its own; the remove forms make
    // them unlimited. Throw FSError with the domain-relative root and the operation's text.
    void setDomainQuota(const std::string& domain, long long quota);
    void removeDomainQuota(const std::string& domain);
    void setDefaultMailboxQuota(const std::string& domain, long long quota);
    void removeDefaultMailboxQuota(const std::string& domain);

private:
    MaildirPPManager() = default;
    ~MaildirPPManager() = default;
};

}  // namespace quelt::mail

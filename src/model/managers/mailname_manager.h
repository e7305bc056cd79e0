// Mailnames as lookup-table records: the mailbox, the own address and the addresses through
// every domain alias, mail aliases; and the mailname's home, quota and .qmail file.
#pragma once

#include <string>

#include "storage/maildir_manager.h"
#include "tables/batch_database_helper.h"

namespace quelt::mail::postfix {

// Stateless. The domain comes first and the local part second, both checked and in ASCII form.
// The domain aliases are those the panel database lists (none when its query fails). Table
// failures pass through unchanged; only renameMailname undoes what it did before a failure.
class MailnameManager {
public:
    // Home, .qmail reset to "| true", the quota (negative: unlimited), then the records.
    static void createMailname(const std::string& domain, const std::string& mailname, long long quota);
    // The same with the domain's mailbox limit instead of a quota of its own.
    static void createMailname(const std::string& domain, const std::string& mailname);
    // The vmailbox record (one postmap run), then the addresses through the domain and each
    // domain alias (one run).
    static void createMailnameRecord(BatchDatabaseHelper& batch, const std::string& domain,
                                     const std::string& mailname);

    // `alias` at the domain and at each domain alias points at the mailname, whatever it
    // pointed at before.
    static void createMailAlias(const std::string& domain, const std::string& mailname, const std::string& alias);
    static void createMailAlias(BatchDatabaseHelper& batch, const std::string& domain,
                                const std::string& mailname, const std::string& alias);
    // One postmap run per key; absent keys are no error. The mailname is not looked at.
    static void removeMailAlias(const std::string& domain, const std::string& mailname, const std::string& alias);

    // The records (mail aliases stay), then the home: removed (failures ignored), set aside, or
    // left for any other mode.
    static void removeMailname(const std::string& domain, const std::string& mailname, OnRemoval mode);

    // Edits of the mailname's .qmail file; failures throw quelt::SystemError.
    static void enableDelivery(const std::string& domain, const std::string& mailname);
    static void disableDelivery(const std::string& domain, const std::string& mailname);
    static void addForward(const std::string& domain, const std::string& mailname, const std::string& address);
    static void removeForward(const std::string& domain, const std::string& mailname, const std::string& address);

    // vmailbox, virtual, then the home; a failure undoes the completed table steps and is
    // rethrown. Addresses through domain aliases keep their keys: see the next operation.
    static void renameMailname(const std::string& domain, const std::string& oldMailname,
                               const std::string& newMailname);
    // The key old@alias becomes new@alias in virtual.
    static void renameMailnameOnDomainAlias(const std::string& alias, const std::string& oldMailname,
                                            const std::string& newMailname);
};

}  // namespace quelt::mail::postfix

// Mailnames as lookup-table records, with their homes, quotas and .qmail files.
#include "model/managers/mailname_manager.h"

#include <vector>

#include "auth/panel_db.h"
#include "model/managers/rename_undo.h"
#include "storage/dotqmail.h"
#include "storage/maildirpp_manager.h"
#include "tables/database_helper.h"
#include "tables/record_filters.h"
#include "tables/table_names.h"

namespace quelt::mail::postfix {

using database::ElementsFilter;
using database::KeyValueFilter;
using database::ReplaceElementFilterRef;

namespace {

BatchDatabaseHelper immediateBatch()
{
    return BatchDatabaseHelper(true, true);
}

// The domain's aliases in the panel's query order; none when the query fails.
std::vector<std::string> domainAliases(const std::string& domain)
{
    StringList aliases;
    if (get_domaliases_by_domain(nullptr, aliases, domain) == 0 && aliases)
        return *aliases;
    return {};
}

// The mailbox path of a mailname relative to the mail root, without the closing "/".
std::string maildirPath(const std::string& domain, const std::string& mailname)
{
    return (MaildirManager::getMailnameRelativeHome(domain, mailname) / "Maildir").string();
}

DotQMailManager dotQMail(const std::string& domain, const std::string& mailname)
{
    return DotQMailManager((MaildirManager::getMailnameHome(domain, mailname) / ".qmail").string());
}

// `local`@domain and `local`@A for each domain alias A, all pointing at `target`.
BatchDatabaseHelper::Records addressesOf(const std::string& domain, const std::string& local,
                                         const std::string& target)
{
    BatchDatabaseHelper::Records records;
    records.emplace_back(local + "@" + domain, target);
    for (const auto& alias : domainAliases(domain))
        records.emplace_back(local + "@" + alias, target);
    return records;
}

void renameInVmailbox(const std::string& fromAddr, const std::string& toAddr, const std::string& fromPath,
                      const std::string& toPath)
{
    DatabaseHelper::filterRecords(tables::kVmailbox,
                                  KeyValueFilter<ReplaceElementFilterRef, ReplaceElementFilterRef>(
                                      ReplaceElementFilterRef(fromAddr, toAddr), ReplaceElementFilterRef(fromPath, toPath)));
}

void renameInVirtual(const std::string& fromAddr, const std::string& toAddr)
{
    DatabaseHelper::filterRecords(tables::kVirtual,
                                  ElementsFilter<ReplaceElementFilterRef>(ReplaceElementFilterRef(fromAddr, toAddr)));
}

}  // namespace

void MailnameManager::createMailname(const std::string& domain, const std::string& mailname, long long quota)
{
    MaildirPPManager& maildirpp = MaildirPPManager::getInstance();
    maildirpp.createMailnameHome(domain, mailname);
    dotQMail(domain, mailname).reset();
    maildirpp.setMailboxQuota(domain, mailname, quota);
    BatchDatabaseHelper batch = immediateBatch();
    createMailnameRecord(batch, domain, mailname);
}

void MailnameManager::createMailname(const std::string& domain, const std::string& mailname)
{
    MaildirPPManager& maildirpp = MaildirPPManager::getInstance();
    maildirpp.createMailnameHome(domain, mailname);
    dotQMail(domain, mailname).reset();
    maildirpp.removeMailboxQuota(domain, mailname);
    BatchDatabaseHelper batch = immediateBatch();
    createMailnameRecord(batch, domain, mailname);
}

void MailnameManager::createMailnameRecord(BatchDatabaseHelper& batch, const std::string& domain,
                                           const std::string& mailname)
{
    const std::string address = mailname + "@" + domain;
    batch.addChange(tables::kVmailbox, address, maildirPath(domain, mailname) + "/");
    const BatchDatabaseHelper::Records records = addressesOf(domain, mailname, address);
    batch.addChanges(tables::kVirtual, records.begin(), records.end());
}

void MailnameManager::createMailAlias(const std::string& domain, const std::string& mailname, const std::string& alias)
{
    BatchDatabaseHelper batch = immediateBatch();
    createMailAlias(batch, domain, mailname, alias);
}

void MailnameManager::createMailAlias(BatchDatabaseHelper& batch, const std::string& domain,
                                      const std::string& mailname, const std::string& alias)
{
    const BatchDatabaseHelper::Records records = addressesOf(domain, alias, mailname + "@" + domain);
    batch.addChanges(tables::kVirtual, records.begin(), records.end());
}

void MailnameManager::removeMailAlias(const std::string& domain, const std::string& /*mailname*/,
                                      const std::string& alias)
{
    DatabaseHelper::removeRecord(tables::kVirtual, alias + "@" + domain);
    for (const auto& domainAlias : domainAliases(domain))
        DatabaseHelper::removeRecord(tables::kVirtual, alias + "@" + domainAlias);
}

void MailnameManager::removeMailname(const std::string& domain, const std::string& mailname, OnRemoval mode)
{
    DatabaseHelper::removeRecord(tables::kVmailbox, mailname + "@" + domain);
    for (const auto& domainAlias : domainAliases(domain))
        DatabaseHelper::removeRecord(tables::kVirtual, mailname + "@" + domainAlias);
    DatabaseHelper::removeRecord(tables::kVirtual, mailname + "@" + domain);
    if (mode == OnRemoval::Remove) {
        try {
            MaildirPPManager::getInstance().removeMailnameHome(domain, mailname);
        } catch (...) {
            // The records are gone: mail that cannot be deleted must not make that a failure.
        }
    } else if (mode == OnRemoval::Backup) {
        MaildirPPManager::getInstance().backupMailnameHome(domain, mailname);
    }
}

void MailnameManager::enableDelivery(const std::string& domain, const std::string& mailname)
{
    dotQMail(domain, mailname).enableDelivery();
}

void MailnameManager::disableDelivery(const std::string& domain, const std::string& mailname)
{
    dotQMail(domain, mailname).disableDelivery();
}

void MailnameManager::addForward(const std::string& domain, const std::string& mailname, const std::string& address)
{
    dotQMail(domain, mailname).addRedirect(address, DotQMailManager::Position::End);
}

void MailnameManager::removeForward(const std::string& domain, const std::string& mailname,
                                    const std::string& address)
{
    dotQMail(domain, mailname).removeRedirect(address);
}

void MailnameManager::renameMailname(const std::string& domain, const std::string& oldMailname,
                                     const std::string& newMailname)
{
    const std::string oldAddr = oldMailname + "@" + domain;
    const std::string newAddr = newMailname + "@" + domain;
    const std::string oldPath = maildirPath(domain, oldMailname);
    const std::string newPath = maildirPath(domain, newMailname);
    // Declared after the names its steps refer to, so it runs while they still live.
    RenameUndo undo(tables::kVmailboxTitle);

    renameInVmailbox(oldAddr, newAddr, oldPath, newPath);
    undo.push(tables::kVmailboxTitle, [&] { renameInVmailbox(newAddr, oldAddr, newPath, oldPath); });

    renameInVirtual(oldAddr, newAddr);
    undo.push(tables::kVirtualTitle, [&] { renameInVirtual(newAddr, oldAddr); });

    MaildirManager::getInstance().renameMailnameHome(domain, oldMailname, newMailname);
    undo.dismiss();
}

void MailnameManager::renameMailnameOnDomainAlias(const std::string& alias, const std::string& oldMailname,
                                                  const std::string& newMailname)
{
    renameInVirtual(oldMailname + "@" + alias, newMailname + "@" + alias);
}

}  // namespace quelt::mail::postfix

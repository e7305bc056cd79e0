// Mail domains as lookup-table records.
#include "model/managers/domain_manager.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/replace.hpp>


#include "auth/panel_db.h"
#include "auth/panel_passwd.h"
#include "model/managers/hostname.h"
#include "model/managers/rename_undo.h"
#include "runtime/sh_quote.h"
#include "runtime/uerr.h"
#include "storage/maildirpp_manager.h"
#include "tables/database_helper.h"
#include "tables/record_filters.h"
#include "tables/table_names.h"

namespace quelt::mail::postfix {

using database::ElementsFilter;
using database::KeyValueFilter;
using database::NotInDomainFilter;
using database::ReplaceDomainPart;
using database::ReplaceDomainPath;
using database::ReplaceElementFilterRef;

const char* const stdAddresses[6] = {"postmaster", "mailer-daemon", "root", "anonymous", "drweb", "kluser"};

namespace {

const char* const doubleErrorHead = "CRITICAL ERROR: Unable to properly restore ";
const char* const doubleErrorTail =
    " used by Quelt.\nMail system may be not usable at the moment and it cannot be repaired "
    "automatically.\nConstact Korvaneth support to resolve this issue.";
const char* const kLocalHost = "@localhost.localdomain";
const char* const kBounceKeyPrefix = "_quelt_bounce_";
const char* const kBounceProgram = "/usr/lib/quelt-9.0/bouncemessage";

// Immediate, incremental: what the batch-less forms use for their one call.
BatchDatabaseHelper immediateBatch()
{
    return BatchDatabaseHelper(true, true);
}

// The domain followed by its domain aliases known to the panel (none when the query fails).
DomainManager::Names domainWithAliases(const std::string& domain)
{
    DomainManager::Names names{domain};
    append_domainaliases_by_domain(names, domain);
    return names;
}

// Keeps the host's own name a hosted address set while domains are renamed to and from it. On
// an unfinished rename it puts the entry back as it was; the first failing undo step is
// reported and ends the undoing.
class safeDomainFromToHostnameRenamer {
public:
    safeDomainFromToHostnameRenamer()
    {
        if (get_hostname_fqdn(host_) != 0)
            host_.clear();
    }
    ~safeDomainFromToHostnameRenamer()
    {
        if (done_)
            return;
        try {
            if (added_)
                dropHostEntry();
            if (removed_)
                addHostEntry();
        } catch (...) {
            reportCriticalRestore(tables::kVirtualDomainsTitle);
        }
    }
    safeDomainFromToHostnameRenamer(const safeDomainFromToHostnameRenamer&) = delete;
    safeDomainFromToHostnameRenamer& operator=(const safeDomainFromToHostnameRenamer&) = delete;

    // The new name takes the host's name: its entry goes.
    void renamingTo(const std::string& newName)
    {
        if (!isHost(newName))
            return;
        removed_ = true;
        dropHostEntry();
    }
    // The old name was the host's name: its entry comes back.
    void renamedFrom(const std::string& oldName)
    {
        if (!isHost(oldName))
            return;
        added_ = true;
        addHostEntry();
    }
    // Takes back an entry (even a partly) made by renamedFrom, for callers whose later undo
    // steps must see the table without it; the guard then only restores a removed entry.
    void undoAdded()
    {
        if (!added_)
            return;
        added_ = false;
        dropHostEntry();
    }
    void dismiss() { done_ = true; }

private:
    bool isHost(const std::string& name) const
    {
        return !host_.empty() && boost::algorithm::iequals(host_, name);
    }
    void dropHostEntry()
    {
        DatabaseHelper::removeRecord(tables::kVirtual, host_);
        DomainManager::removeStandardDomainAddresses(host_);
    }
    void addHostEntry()
    {
        DatabaseHelper::addRecord(tables::kVirtual, host_, "1");
        DomainManager::createStandardDomainAddresses(host_);
    }

    std::string host_;
    bool removed_ = false;
    bool added_ = false;
    bool done_ = false;
};

}  // namespace

void reportCriticalRestore(const std::string& title)
{
    uerr << doubleErrorHead << title << doubleErrorTail << std::endl;
}

void DomainManager::createDomain(const std::string& domain, bool disabled)
{
    MaildirManager::getInstance().createDomainRoot(domain);
    removeDomainAlias(domain);
    BatchDatabaseHelper batch = immediateBatch();
    createDomainRecord(batch, domain, disabled);
}

void DomainManager::createDomain(const std::string& domain, long long quota, bool disabled)
{
    MaildirPPManager& maildirpp = MaildirPPManager::getInstance();
    maildirpp.createDomainRoot(domain);
    maildirpp.setDomainQuota(domain, quota);
    removeDomainAlias(domain);
    BatchDatabaseHelper batch = immediateBatch();
    createDomainRecord(batch, domain, disabled);
}

void DomainManager::createDomainRecord(BatchDatabaseHelper& batch, const std::string& domain, bool disabled)
{
    createStandardDomainAddresses(batch, domain);
    if (!disabled)
        enableDomain(batch, domain);
}

void DomainManager::enableDomain(const std::string& domain)
{
    BatchDatabaseHelper batch = immediateBatch();
    enableDomain(batch, domain);
}

void DomainManager::enableDomain(BatchDatabaseHelper& batch, const std::string& domain)
{
    batch.addChange(tables::kVirtualDomains, domain, domain + "/");
    createStandardDomainAddresses(batch, domain);
}

void DomainManager::disableDomain(const std::string& domain)
{
    DatabaseHelper::removeRecord(tables::kVirtualDomains, domain);
    removeStandardDomainAddresses(domain);
}

void DomainManager::removeDomain(const std::string& domain, OnRemoval mode)
{
    DatabaseHelper::removeRecord(tables::kVirtualDomains, domain);
    if (mode == OnRemoval::Remove) {
        try {
            MaildirManager::getInstance().removeDomainRoot(domain);
        } catch (...) {
            // Mail that cannot be deleted must not keep the domain's records alive.
        }
    } else if (mode == OnRemoval::Backup) {
        MaildirManager::getInstance().backupDomainRoot(domain);
    }
    removeDomainReferences(domain, false);
}

void DomainManager::removeDomainReferences(const std::string& domain, bool subdomains)
{
    const ElementsFilter<NotInDomainFilter> filter(NotInDomainFilter(domain, subdomains));
    DatabaseHelper::filterRecords(tables::kVirtual, filter);
    DatabaseHelper::filterRecords(tables::kVmailbox, filter);
}

void DomainManager::createStandardDomainAddresses(const std::string& domain)
{
    BatchDatabaseHelper batch = immediateBatch();
    createStandardDomainAddresses(batch, domain);
}

void DomainManager::createStandardDomainAddresses(BatchDatabaseHelper& batch, const std::string& domain)
{
    BatchDatabaseHelper::Records records;
    for (const char* word : stdAddresses)
        records.emplace_back(std::string(word) + "@" + domain, std::string(word) + kLocalHost);
    batch.addChanges(tables::kVirtual, records.begin(), records.end());
}

void DomainManager::removeStandardDomainAddresses(const std::string& domain)
{
    BatchDatabaseHelper batch = immediateBatch();
    removeStandardDomainAddresses(batch, domain);
}

void DomainManager::removeStandardDomainAddresses(BatchDatabaseHelper& batch, const std::string& domain)
{
    BatchDatabaseHelper::Keys keys;
    for (const char* word : stdAddresses)
        keys.push_back(std::string(word) + "@" + domain);
    batch.removeChanges(tables::kVirtual, keys.begin(), keys.end());
}

void DomainManager::createCatchall(const std::string& domain, const std::string& target)
{
    BatchDatabaseHelper batch = immediateBatch();
    createCatchall(batch, domain, target);
}

void DomainManager::createCatchall(BatchDatabaseHelper& batch, const std::string& domain, const std::string& target)
{
    createCatchallFor(batch, domainWithAliases(domain), target);
}

void DomainManager::createCatchallFor(BatchDatabaseHelper& batch, const Names& domains, const std::string& target)
{
    BatchDatabaseHelper::Records records;
    for (const auto& name : domains)
        records.emplace_back("@" + name, target);
    batch.addChanges(tables::kVirtual, records.begin(), records.end());
}

void DomainManager::setBounce(const std::string& domain, const std::string& message)
{
    BatchDatabaseHelper batch = immediateBatch();
    setBounce(batch, domain, message);
}

void DomainManager::setBounce(BatchDatabaseHelper& batch, const std::string& domain, const std::string& message)
{
    setBounceFor(batch, domainWithAliases(domain), message);
}

std::string DomainManager::bounceCommand(const std::string& message)
{
    std::string command = std::string("\"|") + kBounceProgram;
    if (!message.empty()) {
        // Quoted twice: once for Postfix's local delivery, once for the shell it runs.
        const std::string oneLine = boost::algorithm::replace_all_copy(message, "\n", " ");
        command += " " + sh_quote(sh_quote(oneLine));
    }
    return command + "\"";
}

void DomainManager::setBounceFor(BatchDatabaseHelper& batch, const Names& domains, const std::string& message)
{
    const std::string command = bounceCommand(message);
    BatchDatabaseHelper::Records records;
    for (const auto& name : domains) {
        batch.addChange(tables::kAliases, kBounceKeyPrefix + name, command);
        records.emplace_back("@" + name, kBounceKeyPrefix + name + kLocalHost);
    }
    batch.addChanges(tables::kVirtual, records.begin(), records.end());
}

void DomainManager::removeCatchall(const std::string& domain)
{
    BatchDatabaseHelper batch = immediateBatch();
    removeCatchall(batch, domain);
}

void DomainManager::removeCatchall(BatchDatabaseHelper& batch, const std::string& domain)
{
    BatchDatabaseHelper::Keys keys;
    StringList aliases;
    if (get_domaliases_by_domain(nullptr, aliases, domain) == 0 && aliases) {
        for (const auto& alias : *aliases)
            keys.push_back("@" + alias);
    }
    keys.push_back("@" + domain);
    batch.removeChanges(tables::kVirtual, keys.begin(), keys.end());
}

void DomainManager::createDomainAlias(const std::string& domain, const std::string& alias)
{
    BatchDatabaseHelper batch = immediateBatch();
    createDomainAlias(batch, domain, alias);
}

void DomainManager::createDomainAlias(BatchDatabaseHelper& batch, const std::string& domain, const std::string& alias)
{
    createStandardDomainAddresses(batch, alias);
    BatchDatabaseHelper::Records records;
    records.emplace_back(alias, "1");
    StringList mailnames;
    if (get_mailnames_by_domain(nullptr, mailnames, domain) == 0 && mailnames) {
        for (const auto& mailname : *mailnames) {
            const std::string target = mailname + "@" + domain;
            StringList mailAliases;
            if (get_aliases_by_mailname(nullptr, mailAliases, mailname, domain) == 0 && mailAliases) {
                for (const auto& mailAlias : *mailAliases)
                    records.emplace_back(mailAlias + "@" + alias, target);
            }
            records.emplace_back(mailname + "@" + alias, target);
        }
    }
    batch.addChanges(tables::kVirtual, records.begin(), records.end());
}

void DomainManager::removeDomainAlias(const std::string& alias)
{
    DatabaseHelper::filterRecords(tables::kVirtual, ElementsFilter<NotInDomainFilter>(NotInDomainFilter(alias, false)));
}

void DomainManager::renameDomainAlias(const std::string& oldAlias, const std::string& newAlias)
{
    safeDomainFromToHostnameRenamer hostEntry;
    hostEntry.renamingTo(newAlias);
    DatabaseHelper::filterRecords(tables::kVirtual,
                                  ElementsFilter<ReplaceDomainPart>(ReplaceDomainPart(oldAlias, newAlias, false)));
    hostEntry.renamedFrom(oldAlias);
    hostEntry.dismiss();
}

void DomainManager::renameDomain(const std::string& oldDomain, const std::string& newDomain)
{
    safeDomainFromToHostnameRenamer hostEntry;
    hostEntry.renamingTo(newDomain);
    // The undo steps run from undo's destructor, after the step lambdas below have ended: they
    // hold copies of them.
    RenameUndo undo(tables::kVirtualDomainsTitle);

    auto renameDomainsTable = [](const std::string& from, const std::string& to) {
        DatabaseHelper::filterRecords(tables::kVirtualDomains,
                                      ElementsFilter<ReplaceElementFilterRef>(ReplaceElementFilterRef(from, to)));
    };
    renameDomainsTable(oldDomain, newDomain);
    undo.push([renameDomainsTable, &oldDomain, &newDomain] { renameDomainsTable(newDomain, oldDomain); });

    auto renameAliases = [](const std::string& from, const std::string& to) {
        DatabaseHelper::filterRecords(tables::kVirtual,
                                      ElementsFilter<ReplaceDomainPart>(ReplaceDomainPart(from, to, false)));
    };
    renameAliases(oldDomain, newDomain);
    undo.push([renameAliases, &oldDomain, &newDomain] { renameAliases(newDomain, oldDomain); });

    auto renameMailboxes = [](const std::string& from, const std::string& to) {
        const std::string fromRoot = MaildirManager::getDomainRelativeRoot(from).string();
        const std::string toRoot = MaildirManager::getDomainRelativeRoot(to).string();
        DatabaseHelper::filterRecords(tables::kVmailbox, KeyValueFilter<ReplaceDomainPart, ReplaceDomainPath>(
                                                             ReplaceDomainPart(from, to, false),
                                                             ReplaceDomainPath(fromRoot, toRoot)));
    };
    renameMailboxes(oldDomain, newDomain);
    undo.push([renameMailboxes, &oldDomain, &newDomain] { renameMailboxes(newDomain, oldDomain); });

    // Undone before the table steps: undoing the virtual rename gives the old name back its own
    // standard addresses, which dropping the host entry afterwards would delete.
    undo.push([&hostEntry] { hostEntry.undoAdded(); });
    hostEntry.renamedFrom(oldDomain);
    MaildirManager::getInstance().renameDomainRoot(oldDomain, newDomain);
    undo.dismiss();
    hostEntry.dismiss();
}

}  // namespace quelt::mail::postfix

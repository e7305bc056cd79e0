// Mail domains as lookup-table records: hosted domains, standard addresses, catch-all, bounce
// and reject policies, domain aliases, and renames across the tables and the Maildir tree.
#pragma once

#include <string>
#include <vector>

#include "model/managers/rename_undo.h"
#include "storage/maildir_manager.h"
#include "tables/batch_database_helper.h"

namespace quelt::mail::postfix {

// Stateless. Names are in ASCII form. Operations taking a batch send their changes through it;
// the others apply each change at once. Table failures pass through unchanged
// (PostfixConfigurationError for additions and filters, PostfixDatabaseError for removals);
// only the renames undo what they did before a failure.
class DomainManager {
public:
    using Names = std::vector<std::string>;

    // Maildir root, then the domain's records (enabled unless `disabled`).
    static void createDomain(const std::string& domain, bool disabled);
    // The same with a domain quota (Maildir++ units; negative: unlimited).
    static void createDomain(const std::string& domain, long long quota, bool disabled);
    static void createDomainRecord(BatchDatabaseHelper& batch, const std::string& domain, bool disabled);

    static void enableDomain(const std::string& domain);
    static void enableDomain(BatchDatabaseHelper& batch, const std::string& domain);
    static void disableDomain(const std::string& domain);

    // Removes the domain's records and every reference to it; the tree goes (Remove), is set
    // aside (Backup) or stays (any other mode).
    static void removeDomain(const std::string& domain, OnRemoval mode);
    static void removeDomainReferences(const std::string& domain, bool subdomains);

    static void createStandardDomainAddresses(const std::string& domain);
    static void createStandardDomainAddresses(BatchDatabaseHelper& batch, const std::string& domain);
    static void removeStandardDomainAddresses(const std::string& domain);
    static void removeStandardDomainAddresses(BatchDatabaseHelper& batch, const std::string& domain);

    // Catch-all to `target` for the domain and its domain aliases.
    static void createCatchall(const std::string& domain, const std::string& target);
    static void createCatchall(BatchDatabaseHelper& batch, const std::string& domain, const std::string& target);
    static void createCatchallFor(BatchDatabaseHelper& batch, const Names& domains, const std::string& target);

    // Bounce with `message` for the domain and its domain aliases.
    static void setBounce(const std::string& domain, const std::string& message);
    static void setBounce(BatchDatabaseHelper& batch, const std::string& domain, const std::string& message);
    static void setBounceFor(BatchDatabaseHelper& batch, const Names& domains, const std::string& message);

    // Removes the catch-all or bounce of the domain and its domain aliases: unknown local
    // parts are then rejected.
    static void removeCatchall(const std::string& domain);
    static void removeCatchall(BatchDatabaseHelper& batch, const std::string& domain);

    static void createDomainAlias(const std::string& domain, const std::string& alias);
    static void createDomainAlias(BatchDatabaseHelper& batch, const std::string& domain, const std::string& alias);
    static void removeDomainAlias(const std::string& alias);

    // Renames; a failure undoes the completed steps (see the .cc) and is rethrown.
    static void renameDomainAlias(const std::string& oldAlias, const std::string& newAlias);
    static void renameDomain(const std::string& oldDomain, const std::string& newDomain);

    // The bounce command stored in the aliases table for `message`.
    static std::string bounceCommand(const std::string& message);
};

// The six local parts every hosted domain answers to.
extern const char* const stdAddresses[6];

}  // namespace quelt::mail::postfix

// Mail-handlers operations over sets of rows: a domain's handlers, copies to another address
// or domain, batches in one transaction, and the runner's lookup.
#include <syslog.h>

#include "handlers/mail_handlers.h"
#include "handlers/mh_statement.h"
#include "runtime/log.h"

using namespace quelt::mail::handlers;
using quelt::sqlite::Statement;

namespace {

const char* const kSelectFailure = "Unable to select data from handlers database: %s";
const char* const kBindSelectAddress = "Unable to bind parameter 'address' to the 'SELECT' query: %s";
const char* const kSaveFailure = "Unable to save the data from SELECT query";

// The runner reads addresses into a buffer of this size.
const std::string::size_type kSelectAddressMax = 501;

// Whether `address` is "<local>@domain" with exactly `domain` after the first "@".
bool isAddressOf(const std::optional<std::string>& address, const std::string& domain)
{
    if (!address)
        return false;
    const std::string::size_type at = address->find('@');
    return at != std::string::npos && address->compare(at + 1, std::string::npos, domain) == 0;
}

int saveRow(mh_list& list, const mh_data& record)
{
    if (mh_list_add(list, record) != 0) {
        quelt_log(LOG_ERR, kSaveFailure);
        return -1;
    }
    return 0;
}

// Collects the handlers to copy in mh_db_clone, each already carrying its target address.
int collectClones(quelt::sqlite::Database& db, mh_list& list, const std::optional<std::string>& mailname,
                  const std::string& domain, const std::optional<std::string>& newMailname,
                  const std::string& newDomain)
{
    auto fill = [](const Statement& row, std::optional<std::string> address) {
        mh_data record;
        record.priority = sqlite3_column_int(row.get(), 0);
        record.type = sqlite3_column_int(row.get(), 1);
        record.queue = sqlite3_column_int(row.get(), 2);
        record.name = columnString(row, 3);
        record.executable = columnString(row, 4);
        record.context = columnString(row, 5);
        record.enabled = sqlite3_column_int(row.get(), 6) == 1 ? 1 : 0;
        record.address = std::move(address);
        return record;
    };
    if (mailname) {
        const std::string source = *mailname + "@" + domain;
        const std::string target = (newMailname ? *newMailname : *mailname) + "@" + newDomain;
        return runStatement(
            db, "SELECT priority, type, queue, name, executable, context, enabled FROM handlers WHERE address=?",
            {Binding::string(kBindSelectAddress, source)}, kSelectFailure,
            [&](Statement& row) { return saveRow(list, fill(row, target)); });
    }
    return runStatement(
        db,
        "SELECT priority, type, queue, name, executable, context, enabled, address FROM handlers "
        "WHERE address LIKE '%' || ? || '%'",
        {Binding::string(kBindSelectAddress, domain)}, kSelectFailure, [&](Statement& row) {
            const std::optional<std::string> address = columnString(row, 7);
            if (isAddressOf(address, domain))
                return saveRow(list, fill(row, address->substr(0, address->find('@') + 1) + newDomain));
            if (address && *address == domain)
                return saveRow(list, fill(row, newDomain));
            return 0;
        });
}

}  // namespace

int mh_db_select_by_name(quelt::sqlite::Database* given, mh_list& list, const std::string& domain)
{
    return runStatementOn(
        given, kOpenReadFailure,
        "SELECT priority, type, queue, name, address, executable, context, enabled FROM handlers "
        "WHERE address LIKE '%' || ? || '%'",
        {Binding::string(kBindSelectAddress, domain)}, kSelectFailure, [&](Statement& row) {
            mh_data record;
            record.address = columnString(row, 4);
            if (!isAddressOf(record.address, domain))
                return 0;
            record.priority = sqlite3_column_int(row.get(), 0);
            record.type = sqlite3_column_int(row.get(), 1);
            record.queue = sqlite3_column_int(row.get(), 2);
            record.name = columnString(row, 3);
            record.executable = columnString(row, 5);
            record.context = columnString(row, 6);
            record.enabled = sqlite3_column_int(row.get(), 7);
            return saveRow(list, record);
        });
}

int mh_db_do(mh_list& list, quelt::sqlite::Database* given, mh_db_action action)
{
    Session session(given, kOpenFailure);
    if (!session.ok())
        return -1;
    if (session.db().exec("BEGIN TRANSACTION;") != SQLITE_OK) {
        quelt_log(LOG_ERR, "Unable to begin sqlite transaction: %s", session.db().errorText());
        return -1;
    }
    // Each action logs its own failure; the rest of the batch still goes in.
    for (mh_data& record : list)
        action(session.get(), record);
    if (session.db().exec("END TRANSACTION;") != SQLITE_OK) {
        quelt_log(LOG_ERR, "Unable to end sqlite transaction: %s", session.db().errorText());
        return -1;
    }
    return 0;
}

int mh_db_remove_all(quelt::sqlite::Database* given, const std::string& domain)
{
    Session session(given, kOpenReadFailure);
    if (!session.ok())
        return -1;
    mh_list list;
    if (mh_db_select_by_name(session.get(), list, domain) != 0)
        return -1;
    if (mh_db_do(list, session.get(), mh_db_remove) != 0) {
        quelt_log(LOG_ERR, "Unable to add records into handlers database");
        return -1;
    }
    return 0;
}

int mh_db_clone(quelt::sqlite::Database* given, const std::optional<std::string>& mailname,
                const std::string& domain, const std::optional<std::string>& newMailname,
                const std::string& newDomain)
{
    Session session(given, kOpenFailure);
    if (!session.ok())
        return -1;
    mh_list list;
    if (collectClones(session.db(), list, mailname, domain, newMailname, newDomain) != 0)
        return -1;
    return mh_db_do(list, session.get(), mh_db_add);
}

int mh_db_switch_by_addr(quelt::sqlite::Database* given, const std::string& domain, int enabled)
{
    Session session(given, kOpenFailure);
    if (!session.ok())
        return -1;
    mh_list list;
    if (mh_db_select_by_name(session.get(), list, domain) != 0) {
        quelt_log(LOG_ERR, "Unable to select mail handlers");
        return -1;
    }
    if (mh_db_do(list, session.get(), enabled == 1 ? mh_db_enable : mh_db_disable) != 0)
        return -1;
    // The domain's own handlers are not "<local>@domain" and were not in the list.
    return runStatement(session.db(), "UPDATE OR REPLACE handlers SET enabled=? WHERE address=?",
                        {Binding::integer("Unable to bind parameter 'enabled' to the 'UPDATE' query: %s", enabled),
                         Binding::string("Unable to bind parameter 'address' to the 'UPDATE' query: %s", domain)},
                        "Unable to execute update record into handlers database: %s");
}

int mh_db_select(quelt::sqlite::Database* given, mh_list& list, const mh_data& query)
{
    std::optional<std::string> address = query.address;
    if (query.type == MH_TYPE_GLOBAL) {
        if (!address || *address == MH_ADDR_ALL)
            address = std::string(MH_ADDR_ALL);
        else if (*address != MH_ADDR_ALL_RECIPIENTS) {
            quelt_log(LOG_ERR, "Incorrect recipient address for global handler `%s', expected [NULL|%s|%s]",
                      address->c_str(), MH_ADDR_ALL, MH_ADDR_ALL_RECIPIENTS);
            return -1;
        }
    } else if (address && address->size() > kSelectAddressMax) {
        address->resize(kSelectAddressMax);
    }

    return runStatementOn(
        given, kOpenReadFailure,
        "SELECT executable, context, name FROM handlers WHERE queue=? AND type=? AND enabled=? AND address=? "
        "ORDER BY priority DESC",
        {Binding::integer("Unable to bind parameter 'queue' to the 'SELECT' query: %s", query.queue),
         Binding::integer("Unable to bind parameter 'type' to the 'SELECT' query: %s", query.type),
         Binding::integer("Unable to bind parameter 'enabled' to the 'SELECT' query: %s", query.enabled),
         Binding::string("Unable to bind parameter 'address' to the 'SELECT' query: %s", address)},
        "Unable to get data from mail handlers database: %s", [&](Statement& row) {
            mh_data record;
            record.executable = columnString(row, 0);
            record.context = columnString(row, 1);
            record.name = columnString(row, 2);
            return saveRow(list, record);
        });
}

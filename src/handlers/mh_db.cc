// Single-statement changes of the mail-handlers database: one record, one address, one name.
#include <syslog.h>

#include <boost/filesystem.hpp>

#include "handlers/mail_handlers.h"
#include "handlers/mh_statement.h"
#include "runtime/log.h"

using namespace quelt::mail::handlers;
using quelt::sqlite::Statement;

namespace {

const char* const kCreateSchema =
    "BEGIN TRANSACTION;CREATE TABLE handlers (queue INTEGER, type INTEGER, enabled BOOLEAN, priority INTEGER, "
    "name VARCHAR(255) NOT NULL, address VARCHAR(2048) NOT NULL, executable VARCHAR(2048) NOT NULL, "
    "context VARCHAR(2048) NOT NULL, CONSTRAINT uniq_entries_constaraint PRIMARY KEY (queue, type, name, "
    "address, executable, context));CREATE INDEX idx1 ON handlers(queue, type, enabled, address);"
    "CREATE INDEX idx2 ON handlers(queue, type, enabled, address, priority);"
    "CREATE INDEX idx3 ON handlers(name, queue, type, address);CREATE INDEX idx4 ON handlers(name, queue, type);"
    "COMMIT;";

// Whether a change of `record` concerns its own address only; otherwise it concerns every
// address of its name, type and queue, and the record's address becomes "all".
bool scopeIsOneAddress(mh_data& record)
{
    if (record.type != MH_TYPE_GLOBAL && record.address && !record.address->empty() &&
        *record.address != MH_ADDR_ALL)
        return true;
    record.address = std::string(MH_ADDR_ALL);
    return false;
}

int setEnabled(quelt::sqlite::Database* given, mh_data& record, int enabled)
{
    Session session(given, kOpenFailure);
    if (!session.ok())
        return -1;
    const char* const stepFailure = "Unable to execute update record into handlers database: %s";
    const Binding bindEnabled = Binding::integer("Unable to bind parameter 'enabled' to the 'UPDATE' query: %s", enabled);
    const Binding bindName = Binding::string("Unable to bind parameter 'name' to the 'UPDATE' query: %s", record.name);
    const Binding bindType = Binding::integer("Unable to bind parameter 'type' to the 'UPDATE' query: %s", record.type);
    const Binding bindQueue =
        Binding::integer("Unable to bind parameter 'queue' to the 'UPDATE' query: %s", record.queue);
    if (scopeIsOneAddress(record))
        return runStatement(
            session.db(), "UPDATE OR REPLACE handlers SET enabled=? WHERE name=? AND type=? AND queue=? AND address=?",
            {bindEnabled, bindName, bindType, bindQueue,
             Binding::string("Unable to bind parameter 'address' to the 'UPDATE' query: %s", record.address)},
            stepFailure);
    return runStatement(session.db(), "UPDATE OR REPLACE handlers SET enabled=? WHERE name=? AND type=? AND queue=?",
                        {bindEnabled, bindName, bindType, bindQueue}, stepFailure);
}

// A one-parameter DELETE by address or by name.
int removeWhere(quelt::sqlite::Database* given, const char* sql, const std::string& value)
{
    return runStatementOn(given, kOpenFailure, sql,
                          {Binding::string("Unable to bind parameter param to query: %s", value)},
                          "Unable to execute do action on handlers database: %s");
}

}  // namespace

int mh_db_add(quelt::sqlite::Database* given, mh_data& record)
{
    if (record.type == MH_TYPE_GLOBAL) {
        if (!record.address || record.address->empty())
            record.address = std::string(MH_ADDR_ALL);
        else if (*record.address != MH_ADDR_ALL && *record.address != MH_ADDR_ALL_RECIPIENTS) {
            quelt_log(LOG_ERR, "Incorrect recipient address for global handler, expected [NULL|EMPTY_STRING|%s|%s]",
                      MH_ADDR_ALL, MH_ADDR_ALL_RECIPIENTS);
            return -1;
        }
    }
    if (!record.context)
        record.context = std::string("none");

    return runStatementOn(
        given, kOpenFailure,
        "INSERT OR REPLACE INTO handlers(priority, name, type, address, queue, executable, context, enabled) "
        "VALUES(?, ?, ?, ?, ?, ?, ?, ?)",
        {Binding::integer("Unable to bind parameter 'priority' to the 'INSERT' query: %s", record.priority),
         Binding::string("Unable to bind parameter 'name' to the 'INSERT' query: %s", record.name),
         Binding::integer("Unable to bind parameter 'type' to the 'INSERT' query: %s", record.type),
         Binding::string("Unable to bind parameter 'address' to the 'INSERT' query: %s", record.address),
         Binding::integer("Unable to bind parameter 'queue' to the 'INSERT' query: %s", record.queue),
         // The executable's bind failure has always been reported under the address' name.
         Binding::string("Unable to bind parameter 'address' to the 'INSERT' query: %s", record.executable),
         Binding::string("Unable to bind parameter 'context' to the 'INSERT' query: %s", record.context),
         Binding::integer("Unable to bind parameter 'enabled' to the 'INSERT' query: %s", record.enabled)},
        "Unable to execute insert record into handlers database: %s");
}

int mh_db_remove(quelt::sqlite::Database* given, mh_data& record)
{
    Session session(given, kOpenFailure);
    if (!session.ok())
        return -1;
    const char* const stepFailure = "Unable to execute delete record from handlers database: %s";
    const Binding bindName = Binding::string("Unable to bind parameter 'name' to the 'DELETE' query: %s", record.name);
    const Binding bindType = Binding::integer("Unable to bind parameter 'type' to the 'DELETE' query: %s", record.type);
    const Binding bindQueue =
        Binding::integer("Unable to bind parameter 'queue' to the 'DELETE' query: %s", record.queue);
    if (scopeIsOneAddress(record))
        return runStatement(
            session.db(), "DELETE FROM handlers WHERE name=? AND type=? AND address=? AND queue=?",
            {bindName, bindType,
             Binding::string("Unable to bind parameter 'address' to the 'DELETE' query: %s", record.address),
             bindQueue},
            stepFailure);
    return runStatement(session.db(), "DELETE FROM handlers WHERE name=? AND type=? AND queue=?",
                        {bindName, bindType, bindQueue}, stepFailure);
}

int mh_db_enable(quelt::sqlite::Database* db, mh_data& record)
{
    return setEnabled(db, record, 1);
}

int mh_db_disable(quelt::sqlite::Database* db, mh_data& record)
{
    return setEnabled(db, record, 0);
}

int mh_db_remove_addr(quelt::sqlite::Database* db, const std::string& address)
{
    return removeWhere(db, "DELETE FROM handlers WHERE address=?", address);
}

int mh_db_remove_name(quelt::sqlite::Database* db, const std::string& name)
{
    return removeWhere(db, "DELETE FROM handlers WHERE name=?", name);
}

int mh_db_switch_by_name(quelt::sqlite::Database* given, const std::string& name, int enabled)
{
    return runStatementOn(given, kOpenFailure, "UPDATE OR REPLACE handlers SET enabled=? WHERE name=?",
                          {Binding::integer("Unable to bind parameter 'enabled' to the 'UPDATE' query: %s", enabled),
                           Binding::string("Unable to bind parameter 'name' to the 'UPDATE' query: %s", name)},
                          "Unable to execute update record into handlers database: %s");
}

int mh_db_move_addr(quelt::sqlite::Database* given, const std::string& oldAddress, const std::string& newAddress)
{
    return runStatementOn(
        given, kOpenFailure, "UPDATE OR REPLACE handlers SET address=? WHERE address=?",
        {Binding::string("Unable to bind parameter new 'address' to the 'UPDATE' query: %s", newAddress),
         Binding::string("Unable to bind parameter old 'address' to the 'UPDATE' query: %s", oldAddress)},
        "Unable to execute update record into handlers database: %s");
}

int mh_db_create(quelt::sqlite::Database* given)
{
    const boost::filesystem::path directory = boost::filesystem::path(mh_db_path()).parent_path();
    boost::system::error_code error;
    if (!directory.empty())
        boost::filesystem::create_directories(directory, error);
    if (error) {
        quelt_log(LOG_CRIT, "Unable to create directory for mail handlers database for(%s): %s",
                  mh_db_path().c_str(), error.message().c_str());
        return -1;
    }
    Session session(given, kOpenFailure, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!session.ok())
        return -1;
    if (session.db().exec(kCreateSchema) != SQLITE_OK) {
        quelt_log(LOG_ERR, "Unable to create mail handlers database %s: %s", mh_db_path().c_str(),
                  session.db().errorText());
        return -1;
    }
    return 0;
}

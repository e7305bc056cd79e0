// Connection borrowing and the prepare-bind-step frame of the mail-handlers operations.
#include "handlers/mh_statement.h"

#include <syslog.h>

#include "handlers/mail_handlers.h"
#include "runtime/log.h"

namespace quelt::mail::handlers {

Session::Session(sqlite::Database* given, const char* openFailure, int openFlags)
{
    if (given) {
        db_ = given;
        return;
    }
    if (own_.open(mh_db_path(), openFlags) != SQLITE_OK) {
        quelt_log(LOG_ERR, openFailure, mh_db_path().c_str(), own_.errorText());
        return;
    }
    db_ = &own_;
}

int runStatement(sqlite::Database& db, const char* sql, std::initializer_list<Binding> params,
                 const char* stepFailure, const std::function<int(sqlite::Statement&)>& onRow)
{
    sqlite::Statement statement;
    if (statement.prepare(db, sql) != SQLITE_OK) {
        quelt_log(LOG_ERR, "Unable to prepare SQL statement for query '%s': %s", sql, db.errorText());
        return -1;
    }
    int index = 1;
    for (const Binding& param : params) {
        const int rc = param.isText ? statement.bindText(index, param.text) : statement.bindInt(index, param.number);
        if (rc != SQLITE_OK) {
            quelt_log(LOG_ERR, param.failure, db.errorText());
            return -1;
        }
        ++index;
    }
    int rc;
    while ((rc = statement.step()) == SQLITE_ROW) {
        if (onRow && onRow(statement) != 0)
            return -1;
    }
    if (rc != SQLITE_DONE) {
        quelt_log(LOG_ERR, stepFailure, db.errorText());
        return -1;
    }
    return 0;
}

int runStatementOn(sqlite::Database* given, const char* openFailure, const char* sql,
                   std::initializer_list<Binding> params, const char* stepFailure,
                   const std::function<int(sqlite::Statement&)>& onRow)
{
    Session session(given, openFailure);
    if (!session.ok())
        return -1;
    return runStatement(session.db(), sql, params, stepFailure, onRow);
}

std::optional<std::string> columnString(const sqlite::Statement& statement, int index)
{
    const char* text = statement.columnText(index);
    if (!text)
        return std::nullopt;
    return std::string(text);
}

}  // namespace quelt::mail::handlers

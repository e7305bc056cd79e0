// Read access to the mail password database for password checkers.
#include <cstring>

#include "auth/passwd_db.h"
#include "auth/passwd_db_session.h"

using namespace quelt::mail::authdb;
using quelt::sqlite::Database;
using quelt::sqlite::Statement;

namespace {

const char* const kUserSelection =
    "SELECT u.name || '@' || d.name as mailAddress, u.userPassword AS password, u.cmusaslsecretPLAIN AS "
    "encPassword, u.status AS userDisabled, d.status AS domainDisabled FROM users AS u, domains AS d WHERE u.dom_id "
    "= d.id";

// Hands one row's password to the callback: `userPassword` decrypted (as stored when that
// fails), else the hash with flag 1. Columns from `first`: password, hash, user and domain status.
int deliver(const Statement& row, int first, const std::string& address, const MailAuthCallback& callback)
{
    const char* encrypted = row.columnText(first);
    const char* hashed = row.columnText(first + 1);
    int flags = 0;
    if (sqlite3_column_int(row.get(), first + 2) != 0)
        flags |= kMailAuthUserDisabled;
    if (sqlite3_column_int(row.get(), first + 3) != 0)
        flags |= kMailAuthDomainDisabled;
    if (encrypted && *encrypted) {
        const auto plain = passwordCipher(CipherOp::Decrypt, address, "", encrypted);
        return callback(address, plain ? *plain : std::string(encrypted), flags);
    }
    return callback(address, hashed ? hashed : "", flags | kMailAuthHashed);
}

// Runs the user selection with `suffix` appended, binding `mailname` when given.
int walkUsers(const std::string& suffix, const std::string* mailname, const MailAuthCallback& callback)
{
    Database db;
    if (!openDatabase(db, Access::ReadOnly))
        return -1;
    const std::string sql = suffix.empty() ? std::string(kUserSelection) : std::string(kUserSelection) + " " + suffix;
    Statement query;
    if (!prepareStatement(db, query, sql))
        return -1;
    if (mailname && !bound(query.bindText(1, *mailname), db,
                           "Unable to bind parameter mailname '%s' to SQL statement for query '%s': %s",
                           mailname->c_str(), sql.c_str()))
        return -1;
    int rc;
    while ((rc = query.step()) == SQLITE_ROW) {
        const char* address = query.columnText(0);
        if (!address || !*address) {
            quelt_log(LOG_WARNING, "NULL or empty mail address stored in the database, skipped");
            continue;
        }
        if (!query.columnText(1) && !query.columnText(2)) {
            quelt_log(LOG_INFO, "empty password properties (both plain and encrypted) for user %s, skipped", address);
            continue;
        }
        if (const int result = deliver(query, 1, address, callback))
            return result;
    }
    if (rc != SQLITE_DONE) {
        quelt_log(LOG_ERR, "Unable to execute the user selection query: %s", db.errorText());
        return -1;
    }
    return 0;
}

}  // namespace

int mailAuthIterateAll(const MailAuthCallback& callback)
{
    return walkUsers("ORDER BY d.name, u.name", nullptr, callback);
}

int mailAuthCheckShort(const std::string& mailname, const MailAuthCallback& callback)
{
    return walkUsers("AND u.name=?", &mailname, callback);
}

int mailAuthCheck(const std::string& address, const MailAuthCallback& callback)
{
    const auto at = address.find('@');
    if (at == std::string::npos) {
        quelt_log(LOG_ERR, "Invalid mail address '%s'", address.c_str());
        return -1;
    }
    const std::string mailname = address.substr(0, at);
    const std::string domain = address.substr(at + 1);
    Database db;
    if (!openDatabase(db, Access::ReadOnly))
        return -1;
    const std::string sql =
        "SELECT u.userPassword AS password, u.cmusaslsecretPLAIN AS encPassword, u.status AS userDisabled, d.status "
        "AS domainDisabled FROM users AS u, domains AS d WHERE u.dom_id = d.id AND u.name=? AND d.name=?";
    Statement query;
    if (!prepareStatement(db, query, sql))
        return -1;
    if (!bound(query.bindText(1, mailname), db,
               "Unable to bind parameter mailname '%.*s' to SQL statement for query '%s': %s",
               static_cast<int>(mailname.size()), mailname.c_str(), sql.c_str()) ||
        !bound(query.bindText(2, domain), db,
               "Unable to bind parameter domain name '%s' to SQL statement for query '%s': %s", domain.c_str(),
               sql.c_str()))
        return -1;
    const int rc = query.step();
    if (rc == SQLITE_DONE) {
        quelt_log(LOG_INFO, "No such user '%s' in mail authorization database", address.c_str());
        return -1;
    }
    if (rc != SQLITE_ROW) {
        quelt_log(LOG_ERR, "Unable to execute the user selection query: %s", db.errorText());
        return -1;
    }
    if (!query.columnText(0) && !query.columnText(1)) {
        quelt_log(LOG_INFO, "NULL password fields (both plain and encrypted) for user %s, skipped", address.c_str());
        return -1;
    }
    return deliver(query, 0, address, callback);
}

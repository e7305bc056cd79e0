// The frame shared by the password-database operations: opening, preparing and stepping with
// their messages, and the password cipher run.
#include "auth/passwd_db_session.h"

#include "auth/cipher.h"
#include "auth/passwd_location.h"

namespace quelt::mail::authdb {

bool openDatabase(sqlite::Database& db, Access access)
{
    const bool readOnly = access == Access::ReadOnly;
    const int flags = readOnly ? SQLITE_OPEN_READONLY
                               : SQLITE_OPEN_READWRITE | (access == Access::Create ? SQLITE_OPEN_CREATE : 0);
    if (db.open(mailAuthDBPath(), flags) == SQLITE_OK)
        return true;
    quelt_log(LOG_ERR, readOnly ? "Unable to open database(readonly) %s: %s" : "Unable to open database %s: %s",
              mailAuthDBPath().c_str(), db.errorText());
    return false;
}

bool prepareStatement(const sqlite::Database& db, sqlite::Statement& statement, const std::string& sql)
{
    if (statement.prepare(db, sql) == SQLITE_OK)
        return true;
    quelt_log(LOG_ERR, "Unable to prepare SQL statement for query '%s': %s", sql.c_str(), db.errorText());
    return false;
}

bool executed(sqlite::Statement& statement, const sqlite::Database& db, const std::string& sql, const char* format)
{
    if (statement.step() == SQLITE_DONE)
        return true;
    quelt_log(LOG_ERR, format, sql.c_str(), db.errorText());
    return false;
}

std::optional<std::string> passwordCipher(CipherOp op, const std::string& mailname, const std::string& domain,
                                          const std::string& text)
{
    const char* at = domain.empty() ? "" : "@";
    if (!mail_aes_init(mailAuthKeyPath())) {
        quelt_log(LOG_ERR, "Failed to initialize password cipher context (for mail address '%s%s%s')",
                  mailname.c_str(), at, domain.c_str());
        return std::nullopt;
    }
    auto result = op == CipherOp::Encrypt ? mail_aes_encrypt(text) : mail_aes_decrypt(text.c_str());
    if (!result)
        quelt_log(LOG_ERR, "Failed to %s password for mail address '%s%s%s'",
                  op == CipherOp::Encrypt ? "encrypt" : "decrypt", mailname.c_str(), at, domain.c_str());
    mail_aes_cleanup();
    return result;
}

}  // namespace quelt::mail::authdb

// Shared frame of the password-database operations: opening and preparing with their
// messages, and the password cipher wrapper.
#pragma once

#include <syslog.h>

#include <optional>
#include <string>

#include "auth/sqlite_db.h"
#include "runtime/log.h"

namespace quelt::mail::authdb {

// Create: read-write, making the file when it is missing (initialisation only).
enum class Access { ReadWrite, ReadOnly, Create };

// Opens the database in force; logs "Unable to open database[(readonly)] <path>: <error>".
bool openDatabase(sqlite::Database& db, Access access);
// Logs "Unable to prepare SQL statement for query '<sql>': <error>" on failure.
bool prepareStatement(const sqlite::Database& db, sqlite::Statement& statement, const std::string& sql);

// Logs `format` (its last conversion receiving SQLite's error text) unless `rc` is SQLITE_OK.
template <class... Args>
bool bound(int rc, const sqlite::Database& db, const char* format, Args... args)
{
    if (rc == SQLITE_OK)
        return true;
    quelt_log(LOG_ERR, format, args..., db.errorText());
    return false;
}

// Steps to the end; otherwise logs `format` with the statement text and the error text.
bool executed(sqlite::Statement& statement, const sqlite::Database& db, const std::string& sql,
              const char* format);

enum class CipherOp { Encrypt, Decrypt };
// Runs the mail cipher once with the key in force, logging failures for "mailname@domain"
// (an empty domain drops the "@").
std::optional<std::string> passwordCipher(CipherOp op, const std::string& mailname, const std::string& domain,
                                          const std::string& text);

}  // namespace quelt::mail::authdb

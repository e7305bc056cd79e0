// The frame every mail-handlers operation shares: borrowing or opening a connection, and
// running one statement with its bindings and failure messages.
#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>

#include "auth/sqlite_db.h"

namespace quelt::mail::handlers {

// What a failed open of the handlers file logs, with its path and SQLite's text; the read-only
// wording belongs to the lookups, which open the file read-write all the same.
inline constexpr const char* kOpenFailure = "Unable to open database %s: %s";
inline constexpr const char* kOpenReadFailure = "Unable to open database(readonly) %s: %s";

// The caller's connection, or the handlers file opened read-write for this scope.
class Session {
public:
    // `openFailure` is logged with the path and SQLite's text when the file cannot be opened.
    Session(sqlite::Database* given, const char* openFailure, int openFlags = SQLITE_OPEN_READWRITE);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool ok() const { return db_ != nullptr; }
    sqlite::Database& db() { return *db_; }
    sqlite::Database* get() { return db_; }

private:
    sqlite::Database own_;
    sqlite::Database* db_ = nullptr;
};

// One parameter and the message logged (with SQLite's text) when binding it fails.
struct Binding {
    const char* failure;
    bool isText;
    int number;
    const char* text;  // null binds NULL

    static Binding integer(const char* failure, int value) { return {failure, false, value, nullptr}; }
    static Binding string(const char* failure, const std::optional<std::string>& value)
    {
        return {failure, true, 0, value ? value->c_str() : nullptr};
    }
    static Binding string(const char* failure, const std::string& value) { return {failure, true, 0, value.c_str()}; }
};

// Prepares `sql`, binds `params` in order and steps to the end, handing each row to `onRow`
// (which may be empty). A failed step logs `stepFailure` with SQLite's text. Returns 0 or -1.
int runStatement(sqlite::Database& db, const char* sql, std::initializer_list<Binding> params,
                 const char* stepFailure, const std::function<int(sqlite::Statement&)>& onRow = {});

// runStatement on the caller's connection, or on the handlers file opened for this one statement
// (a failed open logs `openFailure` and gives -1).
int runStatementOn(sqlite::Database* given, const char* openFailure, const char* sql,
                   std::initializer_list<Binding> params, const char* stepFailure,
                   const std::function<int(sqlite::Statement&)>& onRow = {});

// A column as an optional string (NULL is absent).
std::optional<std::string> columnString(const sqlite::Statement& statement, int index);

}  // namespace quelt::mail::handlers

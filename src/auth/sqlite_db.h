// SQLite access shared by the password and mail-handlers databases: owners for a connection
// and a statement, and the one loop that repeats a call SQLite reports busy.
#pragma once

#include <sqlite3.h>

#include <string>

namespace quelt::sqlite {

// The pause between attempts of a busy call: none after the first attempt, then 10, 20, 30 ...
// microseconds. A pause that has grown to one second is refused, which fails the operation
// (after 100,001 attempts).
class BusyPause {
public:
    using Sleeper = void (*)(long microseconds);
    explicit BusyPause(Sleeper sleeper = nullptr);
    // Sleeps as due after an attempt; false when the pause has reached one second.
    bool afterAttempt();

private:
    Sleeper sleeper_;
    long pause_ = 0;
};

// Calls `call` until it reports something other than SQLITE_BUSY, running `beforeRetry` before
// each repeat. Returns the last result, or SQLITE_BUSY when the pause was refused.
template <class Call, class BeforeRetry>
int retryWhileBusy(Call call, BeforeRetry beforeRetry, BusyPause pause = BusyPause())
{
    for (;;) {
        const int rc = call();
        if (!pause.afterAttempt())
            return SQLITE_BUSY;
        if ((rc & 0xff) != SQLITE_BUSY)
            return rc;
        beforeRetry();
    }
}

template <class Call>
int retryWhileBusy(Call call)
{
    return retryWhileBusy(call, [] {});
}

// Owns one connection; the destructor closes it (repeating while busy).
class Database {
public:
    static constexpr int kBusyTimeoutMs = 50;

    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // sqlite3_open_v2 with `flags`, then the busy timeout; the SQLite result code.
    int open(const std::string& path, int flags);
    // Runs a script of statements (repeating while busy); the SQLite result code.
    int exec(const std::string& sql);
    // Closes now (repeating while busy); the SQLite result code.
    int close();

    sqlite3* get() const { return db_; }
    // SQLite's text for the last failure, or "general DB errror" without a connection.
    const char* errorText() const;

private:
    sqlite3* db_ = nullptr;
};

// Owns one prepared statement; the destructor finalizes it.
class Statement {
public:
    Statement() = default;
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // Prepares `sql` on `db` (repeating while busy); the SQLite result code.
    int prepare(const Database& db, const std::string& sql);
    // One step (reset and repeated while busy): SQLITE_ROW, SQLITE_DONE or an error code.
    int step();

    // Binds the parameter `index` (1-based); SQLITE_OK or an error code. Texts are copied.
    int bindText(int index, const std::string& text);
    int bindText(int index, const char* text);  // null binds NULL
    int bindInt(int index, int value);
    int bindInt64(int index, sqlite3_int64 value);

    sqlite3_stmt* get() const { return stmt_; }
    // Column `index` of the current row as text; null for NULL.
    const char* columnText(int index) const;

private:
    sqlite3_stmt* stmt_ = nullptr;
};

}  // namespace quelt::sqlite

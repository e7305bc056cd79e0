// Connection and statement owners and the busy-retry pause.
#include "auth/sqlite_db.h"

#include <time.h>

namespace quelt::sqlite {

namespace {

constexpr long kPauseStepUs = 10;
constexpr long kPauseLimitUs = 1000000;

void sleepMicroseconds(long microseconds)
{
    timespec request{microseconds / 1000000, (microseconds % 1000000) * 1000};
    timespec rest{};
    while (nanosleep(&request, &rest) != 0)
        request = rest;
}

}  // namespace

BusyPause::BusyPause(Sleeper sleeper) : sleeper_(sleeper ? sleeper : sleepMicroseconds) {}

bool BusyPause::afterAttempt()
{
    if (pause_ > 0) {
        if (pause_ >= kPauseLimitUs)
            return false;
        sleeper_(pause_);
    }
    pause_ += kPauseStepUs;
    return true;
}

Database::~Database()
{
    close();
}

int Database::open(const std::string& path, int flags)
{
    close();
    const int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
    if (db_)
        sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    return rc;
}

int Database::exec(const std::string& sql)
{
    return retryWhileBusy([&] { return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr); });
}

int Database::close()
{
    if (!db_)
        return SQLITE_OK;
    const int rc = retryWhileBusy([&] { return sqlite3_close(db_); });
    if (rc == SQLITE_OK)
        db_ = nullptr;
    return rc;
}

const char* Database::errorText() const
{
    return db_ ? sqlite3_errmsg(db_) : "general DB errror";
}

Statement::~Statement()
{
    sqlite3_finalize(stmt_);
}

int Statement::prepare(const Database& db, const std::string& sql)
{
    sqlite3_finalize(stmt_);
    stmt_ = nullptr;
    return retryWhileBusy([&] {
        return sqlite3_prepare_v2(db.get(), sql.c_str(), static_cast<int>(sql.size()), &stmt_, nullptr);
    });
}

int Statement::step()
{
    return retryWhileBusy([&] { return sqlite3_step(stmt_); }, [&] { sqlite3_reset(stmt_); });
}

int Statement::bindText(int index, const std::string& text)
{
    return sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

int Statement::bindText(int index, const char* text)
{
    return text ? sqlite3_bind_text(stmt_, index, text, -1, SQLITE_TRANSIENT) : sqlite3_bind_null(stmt_, index);
}

int Statement::bindInt(int index, int value)
{
    return sqlite3_bind_int(stmt_, index, value);
}

int Statement::bindInt64(int index, sqlite3_int64 value)
{
    return sqlite3_bind_int64(stmt_, index, value);
}

const char* Statement::columnText(int index) const
{
    return reinterpret_cast<const char*>(sqlite3_column_text(stmt_, index));
}

}  // namespace quelt::sqlite

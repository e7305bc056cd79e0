// The mail-handlers database on a real file, where the command rows do not reach: lookalike
// domains, copies of odd rows, batches in one transaction, failures the commands cannot provoke.
#include <stdlib.h>
#include <syslog.h>

#include <cstdarg>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include "auth/sqlite_db.h"
#include "handlers/mail_handlers.h"
#include "runtime/log.h"
#include "support/sqlite_rows.h"

namespace {

std::vector<std::pair<int, std::string>> g_logged;  // (priority, text)

void captureLog(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    char text[4096];
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    g_logged.emplace_back(priority, text);
}

using Log = std::vector<std::pair<int, std::string>>;
using Rows = std::vector<std::string>;

// Every handler row as "queue/type/enabled/priority name address", sorted.
Rows rows()
{
    return ::rows(mh_db_path(), "SELECT queue || '/' || type || '/' || enabled || '/' || priority || ' ' || "
                                "name || ' ' || address FROM handlers ORDER BY 1");
}

mh_data handler(const std::string& name, const std::string& address, int type = MH_TYPE_RECIPIENT,
                int priority = 10)
{
    return {priority, type, MH_QUEUE_BEFORE_LOCAL, name, address, "/usr/bin/" + name, {}, 1};
}

class HandlersDb : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/handlers_db_test.XXXXXX";
        dir_ = ::mkdtemp(pattern);
        mh_db_path_set(dir_ + "/handlers/handlers.db");
        quelt_log = captureLog;
        g_logged.clear();
        ASSERT_EQ(mh_db_create(nullptr), 0);
    }
    void TearDown() override
    {
        quelt_log = _quelt_utility_log;
        boost::filesystem::remove_all(dir_);
    }

    void add(mh_data record) { ASSERT_EQ(mh_db_add(nullptr, record), 0) << *record.address; }

    std::string dir_;
};

// The handler rows give lookalikes the command rows do not hold: only the domain itself counts.
TEST_F(HandlersDb, DomainMatchingIgnoresLookalikes)
{
    for (const char* address : {"a@ex.com", "a@ex.com.au", "a@sub.ex.com", "a@myex.com", "ex.com@other.org"})
        add(handler("h", address));
    ASSERT_EQ(mh_db_remove_all(nullptr, "ex.com"), 0);
    EXPECT_EQ(rows(), (Rows{"2/1/1/10 h a@ex.com.au", "2/1/1/10 h a@myex.com", "2/1/1/10 h a@sub.ex.com",
                            "2/1/1/10 h ex.com@other.org"}));
}

TEST_F(HandlersDb, CopiesAreEnabledOnlyFromAStoredOne)
{
    mh_data odd = handler("odd", "a@ex.com");
    odd.enabled = 5;
    add(odd);
    add(handler("k", "b@ex.com"));
    ASSERT_EQ(mh_db_clone(nullptr, std::nullopt, "ex.com", std::nullopt, "ex.org"), 0);
    EXPECT_EQ(rows(), (Rows{"2/1/0/10 odd a@ex.org", "2/1/1/10 k b@ex.com", "2/1/1/10 k b@ex.org",
                            "2/1/5/10 odd a@ex.com"}));
}

// Counts, from a second connection, the rows visible while the batch is still running.
std::vector<std::size_t> g_seenDuringBatch;

int addAndLook(quelt::sqlite::Database* db, mh_data& record)
{
    const int rc = mh_db_add(db, record);
    g_seenDuringBatch.push_back(::rows(mh_db_path(), "SELECT 1 FROM handlers").size());
    return rc;
}

TEST_F(HandlersDb, BatchIsOneTransactionAndSurvivesBadRecords)
{
    mh_list list;
    mh_list_add(list, handler("h", "a@ex.com"));
    mh_list_add(list, handler("bad", "a@ex.com", MH_TYPE_GLOBAL));
    mh_list_add(list, handler("h", "b@ex.com"));
    g_seenDuringBatch.clear();
    ASSERT_EQ(mh_db_do(list, nullptr, addAndLook), 0);
    EXPECT_EQ(g_seenDuringBatch, (std::vector<std::size_t>{0, 0, 0}));
    EXPECT_EQ(rows().size(), 2u);
    EXPECT_EQ(g_logged.size(), 1u);
}

TEST_F(HandlersDb, FailuresAreLoggedOnceAndReturnMinusOne)
{
    const std::string missing = dir_ + "/no/such/dir/handlers.db";
    mh_db_path_set(missing);
    mh_list list;
    const std::string rw = "Unable to open database " + missing + ": unable to open database file";
    const std::string ro = "Unable to open database(readonly) " + missing + ": unable to open database file";
    const std::vector<std::tuple<const char*, std::function<int()>, std::string>> cases = {
        {"remove_all", [] { return mh_db_remove_all(nullptr, "ex.com"); }, ro},
        {"do", [&] { return mh_db_do(list, nullptr, mh_db_add); }, rw},
    };
    for (const auto& [name, run, message] : cases) {
        g_logged.clear();
        EXPECT_EQ(run(), -1) << name;
        EXPECT_EQ(g_logged, (Log{{LOG_ERR, message}})) << name;
    }

    // The directory cannot be made under a plain file.
    mh_db_path_set(dir_ + "/handlers/handlers.db/sub/handlers.db");
    g_logged.clear();
    EXPECT_EQ(mh_db_create(nullptr), -1);
    EXPECT_EQ(g_logged, (Log{{LOG_CRIT, "Unable to create directory for mail handlers database for(" +
                                            mh_db_path() + "): " + std::strerror(ENOTDIR)}}));
}

}  // namespace

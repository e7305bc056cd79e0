// The mail-handlers database on a real file: domain matching, copies, batches in one
// transaction, the messages of failures, and the autoresponder hook's rows.
#include <sqlite3.h>
#include <stdlib.h>
#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include "auth/sqlite_db.h"
#include "handlers/autoresponder.h"
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

// Every handler row as "queue/type/enabled/priority name address executable context", sorted.
Rows rows(const std::string& where = "1")
{
    return ::rows(mh_db_path(), "SELECT queue || '/' || type || '/' || enabled || '/' || priority || ' ' || name || ' ' || "
                              "address || ' ' || executable || ' ' || context FROM handlers WHERE " + where + " ORDER BY 1");
}

mh_data handler(const char* name, std::optional<std::string> address, int type = MH_TYPE_RECIPIENT,
                int queue = MH_QUEUE_BEFORE_LOCAL, int priority = 10)
{
    return {priority, type, queue, std::string(name), std::move(address), std::string("/usr/bin/") + name, {}, 1};
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

    // Registers handlers of `name` (recipient, before-local) at each address.
    void addAt(const char* name, std::initializer_list<const char*> addresses, int type = MH_TYPE_RECIPIENT)
    {
        for (const char* address : addresses) {
            mh_data record = handler(name, std::string(address), type);
            ASSERT_EQ(mh_db_add(nullptr, record), 0) << address;
        }
    }

    std::string dir_;
};

TEST_F(HandlersDb, GlobalHandlerAddresses)
{
    const std::vector<std::pair<std::optional<std::string>, std::string>> cases = {
        {std::nullopt, "all"}, {"", "all"}, {"all", "all"}, {"all-recipients", "all-recipients"}};
    for (const auto& [given, stored] : cases) {  // the repeats of "all" keep one row
        mh_data record = handler("g", given, MH_TYPE_GLOBAL, MH_QUEUE_BEFORE_QUEUE);
        ASSERT_EQ(mh_db_add(nullptr, record), 0) << given.value_or("<absent>");
        EXPECT_EQ(rows("address='" + stored + "'"), (Rows{"1/4/1/10 g " + stored + " /usr/bin/g none"}))
            << given.value_or("<absent>");
    }
    mh_data bad = handler("g", std::string("user@example.com"), MH_TYPE_GLOBAL, MH_QUEUE_BEFORE_QUEUE);
    g_logged.clear();
    EXPECT_EQ(mh_db_add(nullptr, bad), -1);
    EXPECT_EQ(g_logged, (Log{{LOG_ERR, "Incorrect recipient address for global handler, expected "
                                       "[NULL|EMPTY_STRING|all|all-recipients]"}}));
    EXPECT_EQ(rows().size(), 2u);
}

TEST_F(HandlersDb, DomainMatchingIgnoresLookalikes)
{
    addAt("h", {"a@ex.com", "b@ex.com", "a@sub.ex.com", "a@ex.com.au", "ex.com@other.org", "a@myex.com"});
    addAt("d", {"ex.com", "ex.com.au"}, MH_TYPE_RECIPIENT_DOMAIN);
    mh_data off = handler("s", std::string("c@ex.com"), MH_TYPE_SENDER, MH_QUEUE_BEFORE_DATA);
    off.enabled = 0;
    ASSERT_EQ(mh_db_add(nullptr, off), 0);

    mh_list list;
    ASSERT_EQ(mh_db_select_by_name(nullptr, list, "ex.com"), 0);
    Rows found;
    for (const mh_data& record : list)
        found.push_back(*record.address);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (Rows{"a@ex.com", "b@ex.com", "c@ex.com"}));

    ASSERT_EQ(mh_db_clone(nullptr, std::nullopt, "ex.com", std::nullopt, "new.org"), 0);
    EXPECT_EQ(rows("address LIKE '%new.org'"),
              (Rows{"0/0/0/10 s c@new.org /usr/bin/s none", "2/1/1/10 h a@new.org /usr/bin/h none",
                    "2/1/1/10 h b@new.org /usr/bin/h none", "2/3/1/10 d new.org /usr/bin/d none"}));
    ASSERT_EQ(mh_db_switch_by_addr(nullptr, "ex.com", 0), 0);
    EXPECT_EQ(rows("enabled=0 AND address NOT LIKE '%new.org'").size(), 4u);
    EXPECT_EQ(rows("enabled=1").size(), 8u);

    ASSERT_EQ(mh_db_remove_all(nullptr, "ex.com"), 0);
    ASSERT_EQ(mh_db_remove_addr(nullptr, "ex.com"), 0);
    EXPECT_EQ(rows("address LIKE '%ex.com'").size(), 2u);  // a@sub.ex.com and a@myex.com stay
    EXPECT_EQ(rows("address IN ('ex.com', 'a@ex.com', 'b@ex.com', 'c@ex.com')").size(), 0u);
}

TEST_F(HandlersDb, CloneAndMoveOneAddress)
{
    addAt("h", {"a@ex.com"});
    addAt("k", {"a@ex.com", "b@ex.com"});
    mh_data odd = handler("odd", std::string("a@ex.com"));
    odd.enabled = 5;  // only a stored 1 counts as enabled in a copy
    ASSERT_EQ(mh_db_add(nullptr, odd), 0);
    ASSERT_EQ(mh_db_clone(nullptr, std::string("a"), "ex.com", std::string("z"), "ex.net"), 0);
    ASSERT_EQ(mh_db_clone(nullptr, std::string("a"), "ex.com", std::nullopt, "ex.org"), 0);
    EXPECT_EQ(rows("address IN ('z@ex.net', 'a@ex.org') AND enabled=1").size(), 4u);
    EXPECT_EQ(rows("address IN ('z@ex.net', 'a@ex.org') AND enabled=0 AND name='odd'").size(), 2u);
    EXPECT_EQ(rows("address LIKE '%ex.com'").size(), 4u);

    ASSERT_EQ(mh_db_move_addr(nullptr, "b@ex.com", "c@ex.com"), 0);
    EXPECT_EQ(rows("address='c@ex.com'"), (Rows{"2/1/1/10 k c@ex.com /usr/bin/k none"}));
    ASSERT_EQ(mh_db_switch_by_name(nullptr, "k", 0), 0);
    EXPECT_EQ(rows("enabled=0 AND name='k'").size(), 4u);
    EXPECT_EQ(rows("enabled=1").size(), 3u);  // h at a@ex.com and its two copies
}

// Counts, from a second connection, the rows visible while the batch is still running.
std::vector<std::size_t> g_seenDuringBatch;

int addAndLook(quelt::sqlite::Database* db, mh_data& record)
{
    const int rc = mh_db_add(db, record);
    quelt::sqlite::Database other;
    other.open(mh_db_path(), SQLITE_OPEN_READONLY);
    quelt::sqlite::Statement count;
    count.prepare(other, "SELECT count(*) FROM handlers");
    g_seenDuringBatch.push_back(count.step() == SQLITE_ROW ? std::stoul(count.columnText(0)) : 999);
    return rc;
}

TEST_F(HandlersDb, BatchIsOneTransactionAndSurvivesBadRecords)
{
    mh_list list;
    mh_list_add(list, handler("h", std::string("a@ex.com")));
    mh_list_add(list, handler("bad", std::string("a@ex.com"), MH_TYPE_GLOBAL));
    mh_list_add(list, handler("h", std::string("b@ex.com")));
    g_seenDuringBatch.clear();
    ASSERT_EQ(mh_db_do(list, nullptr, addAndLook), 0);
    EXPECT_EQ(g_seenDuringBatch, (std::vector<std::size_t>{0, 0, 0}));
    EXPECT_EQ(rows().size(), 2u);
    ASSERT_EQ(g_logged.size(), 1u);

    quelt::sqlite::Database inside;  // a transaction cannot begin inside another
    ASSERT_EQ(inside.open(mh_db_path(), SQLITE_OPEN_READWRITE), SQLITE_OK);
    ASSERT_EQ(inside.exec("BEGIN;"), SQLITE_OK);
    EXPECT_EQ(mh_db_do(list, &inside, mh_db_add), -1);
    EXPECT_EQ(g_logged.back(), (Log::value_type{LOG_ERR, "Unable to begin sqlite transaction: cannot start a "
                                                         "transaction within a transaction"}));
}

TEST_F(HandlersDb, RunnerLookupIsReadHighestPriorityFirst)
{
    for (int priority : {50, 90, 10}) {
        mh_data record = handler(("p" + std::to_string(priority)).c_str(), std::string("a@ex.com"), MH_TYPE_RECIPIENT,
                                 MH_QUEUE_BEFORE_LOCAL, priority);
        ASSERT_EQ(mh_db_add(nullptr, record), 0);
    }
    addAt("other", {"b@ex.com"});
    mh_list list;
    ASSERT_EQ(mh_db_select(nullptr, list, handler("", std::string("a@ex.com"))), 0);
    Rows names;
    for (const mh_data& record : list)
        names.push_back(*record.name + " " + *record.executable + " " + *record.context);
    EXPECT_EQ(names, (Rows{"p10 /usr/bin/p10 none", "p50 /usr/bin/p50 none", "p90 /usr/bin/p90 none"}));

    EXPECT_EQ(mh_db_select(nullptr, list, handler("", std::string("a@ex.com"), MH_TYPE_GLOBAL)), -1);
    EXPECT_EQ(g_logged.back().second,
              "Incorrect recipient address for global handler `a@ex.com', expected [NULL|all|all-recipients]");
}

TEST_F(HandlersDb, FailuresAreLoggedOnceAndReturnMinusOne)
{
    const std::string missing = dir_ + "/no/such/dir/handlers.db";
    mh_db_path_set(missing);
    mh_data record = handler("h", std::string("a@ex.com"));
    mh_list list;
    const std::string rw = "Unable to open database " + missing + ": unable to open database file";
    const std::string ro = "Unable to open database(readonly) " + missing + ": unable to open database file";
    const std::vector<std::tuple<const char*, std::function<int()>, std::string>> cases = {
        {"add", [&] { return mh_db_add(nullptr, record); }, rw},
        {"remove_all", [&] { return mh_db_remove_all(nullptr, "ex.com"); }, ro},
        {"clone", [&] { return mh_db_clone(nullptr, std::nullopt, "ex.com", std::nullopt, "ex.org"); }, rw},
        {"select", [&] { return mh_db_select(nullptr, list, record); }, ro},
        {"do", [&] { return mh_db_do(list, nullptr, mh_db_add); }, rw},
    };
    for (const auto& [name, run, message] : cases) {
        g_logged.clear();
        EXPECT_EQ(run(), -1) << name;
        EXPECT_EQ(g_logged, (Log{{LOG_ERR, message}})) << name;
    }

    // A file without the table: the statement itself fails.
    mh_db_path_set(dir_ + "/handlers/empty.db");
    quelt::sqlite::Database empty;
    ASSERT_EQ(empty.open(mh_db_path(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), SQLITE_OK);
    g_logged.clear();
    EXPECT_EQ(mh_db_remove_name(&empty, "h"), -1);
    EXPECT_EQ(g_logged.back().second,
              "Unable to prepare SQL statement for query 'DELETE FROM handlers WHERE name=?': no such table: handlers");

    // The directory cannot be made under a plain file.
    mh_db_path_set(dir_ + "/handlers/empty.db/sub/handlers.db");
    g_logged.clear();
    EXPECT_EQ(mh_db_create(nullptr), -1);
    EXPECT_EQ(g_logged, (Log{{LOG_CRIT, "Unable to create directory for mail handlers database for(" + mh_db_path() +
                                            "): " + std::strerror(ENOTDIR)}}));
}

// The autoresponder hook: one row per mailname and domain, the list splitting, and refusals that
// leave the database untouched. The mail commands pass one domain, so the cross product of
// several domains is reachable only from here.
Rows responders()
{
    return ::rows(mh_db_path(), "SELECT priority, type, queue, name, address, executable, context, enabled "
                                "FROM handlers ORDER BY address");
}

std::string responder(const std::string& address)
{
    return "90|1|2|autoresponder|" + address + "|/usr/local/zvt/handlers/hooks/autoresponder|responder|1";
}

TEST_F(HandlersDb, AutoresponderRowsForEveryMailnameAtEveryDomainOnceOnly)
{
    const Rows want = {responder("info@a.test"), responder("info@b.test"), responder("sales@a.test"),
                       responder("sales@b.test")};
    ASSERT_EQ(autoresponder_action("info, sales", "a.test,b.test", AUTORESPONDER_ADD), 0);
    EXPECT_EQ(responders(), want);
    ASSERT_EQ(autoresponder_action("info,sales", "a.test b.test", AUTORESPONDER_ADD), 0);
    EXPECT_EQ(responders(), want);

    ASSERT_EQ(autoresponder_action("sales", "b.test", AUTORESPONDER_REMOVE), 0);
    EXPECT_EQ(responders(), (Rows{responder("info@a.test"), responder("info@b.test"), responder("sales@a.test")}));
    // any other action leaves the rows alone
    EXPECT_EQ(autoresponder_action("info", "c.test", 1), 0);
    EXPECT_EQ(autoresponder_action("info", "a.test", 4), 0);
    EXPECT_EQ(responders().size(), 3u);
    ASSERT_EQ(autoresponder_action("Info", "Bücher.Example", AUTORESPONDER_ADD), 0);
    EXPECT_EQ(responders(), (Rows{responder("info@a.test"), responder("info@b.test"),
                                  responder("info@xn--bcher-kva.example"), responder("sales@a.test")}));
}

// Each refusal happens before the database is touched: the row already there stays alone.
TEST_F(HandlersDb, AutoresponderRefusedListsChangeNothing)
{
    ASSERT_EQ(autoresponder_action("keep", "a.test", AUTORESPONDER_ADD), 0);
    const std::string some = "Unable to make action for some autoresponder handlers";
    const std::pair<std::string, std::string> lists[] = {
        {"info,", "a.test"}, {",info", "a.test"}, {"info,bad..name", "a.test"}, {"info\nroot", "a.test"},
        {"info", "a.test,"}, {"info", "a.test,../etc"}, {"info", "a.test,evil.test\nx"},
        {std::string(200, 'm'), "a.test," + std::string(60, 'd') + ".test"},
    };
    const std::string messages[] = {"Mailname '' is not valid", "Mailname '' is not valid",
                                    "Mailname 'bad..name' is not valid", "Mailname 'info\\x0aroot' is not valid",
                                    some, some, some, some};
    for (size_t i = 0; i < std::size(lists); ++i) {
        const auto& [mailnames, domains] = lists[i];
        for (int action : {AUTORESPONDER_ADD, AUTORESPONDER_REMOVE}) {
            g_logged.clear();
            EXPECT_EQ(autoresponder_action(mailnames.c_str(), domains.c_str(), action), -1) << mailnames << " / " << domains;
            ASSERT_FALSE(g_logged.empty());
            EXPECT_EQ(g_logged.back().second, messages[i]) << mailnames << " / " << domains;
        }
        EXPECT_EQ(responders(), Rows{responder("keep@a.test")}) << mailnames << " / " << domains;
    }
    g_logged.clear();
    EXPECT_EQ(autoresponder_action(std::string(240, 'm').c_str(), "abcdefghijklmn.test", AUTORESPONDER_ADD), -1);
    EXPECT_EQ(g_logged, (Log{{LOG_ERR, "domain name too long\n"}, {LOG_ERR, some}}));
}

}  // namespace

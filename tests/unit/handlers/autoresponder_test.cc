// The autoresponder hook on a real handlers database: one row per mailname and domain, the
// list splitting, and refusals that leave the database untouched. The mail commands pass one
// domain, so the cross product of several domains is reachable only from here.
#include <stdlib.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include "handlers/autoresponder.h"
#include "handlers/mail_handlers.h"
#include "runtime/log.h"
#include "support/sqlite_rows.h"

namespace {

std::vector<std::string> g_logged;

void captureLog(int, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    char text[4096];
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    g_logged.emplace_back(text);
}

using Rows = std::vector<std::string>;

const std::string kFields = "|/usr/local/zvt/handlers/hooks/autoresponder|responder|1";

class Autoresponder : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/autoresponder_test.XXXXXX";
        dir_ = ::mkdtemp(pattern);
        mh_db_path_set(dir_ + "/handlers.db");
        quelt_log = captureLog;
        g_logged.clear();
        ASSERT_EQ(mh_db_create(nullptr), 0);
    }
    void TearDown() override
    {
        quelt_log = _quelt_utility_log;
        boost::filesystem::remove_all(dir_);
    }
    Rows all() const
    {
        return rows(mh_db_path(), "SELECT priority, type, queue, name, address, executable, context, enabled "
                                  "FROM handlers ORDER BY address");
    }
    static std::string row(const std::string& address)
    {
        return "90|1|2|autoresponder|" + address + kFields;
    }

    std::string dir_;
};

TEST_F(Autoresponder, TwoMailnamesAtTwoDomainsGiveFourRowsOnceOnly)
{
    const Rows want = {row("info@a.test"), row("info@b.test"), row("sales@a.test"), row("sales@b.test")};
    ASSERT_EQ(autoresponder_action("info, sales", "a.test,b.test", AUTORESPONDER_ADD), 0);
    EXPECT_EQ(all(), want);
    ASSERT_EQ(autoresponder_action("info,sales", "a.test b.test", AUTORESPONDER_ADD), 0);
    EXPECT_EQ(all(), want);

    ASSERT_EQ(autoresponder_action("sales", "b.test", AUTORESPONDER_REMOVE), 0);
    EXPECT_EQ(all(), (Rows{row("info@a.test"), row("info@b.test"), row("sales@a.test")}));
}

TEST_F(Autoresponder, NamesReachTheDatabaseInTheirCheckedForm)
{
    ASSERT_EQ(autoresponder_action("Info", "Bücher.Example", AUTORESPONDER_ADD), 0);
    EXPECT_EQ(all(), Rows{row("info@xn--bcher-kva.example")});
}

TEST_F(Autoresponder, OtherActionsChangeNothing)
{
    EXPECT_EQ(autoresponder_action("info", "a.test", 1), 0);
    EXPECT_EQ(autoresponder_action("info", "a.test", 4), 0);
    EXPECT_EQ(all(), Rows{});
}

// Each refusal happens before the database is touched: the row already there stays alone.
TEST_F(Autoresponder, RefusedListsChangeNothing)
{
    ASSERT_EQ(autoresponder_action("keep", "a.test", AUTORESPONDER_ADD), 0);
    const struct {
        std::string mailnames;
        std::string domains;
        std::string message;
    } cases[] = {
        {"info,", "a.test", "Mailname '' is not valid"},
        {",info", "a.test", "Mailname '' is not valid"},
        {"info,bad..name", "a.test", "Mailname 'bad..name' is not valid"},
        {"info\nroot", "a.test", "Mailname 'info\\x0aroot' is not valid"},
        {"info", "a.test,", "Unable to make action for some autoresponder handlers"},
        {"info", "a.test,../etc", "Unable to make action for some autoresponder handlers"},
        {"info", "a.test,evil.test\nx", "Unable to make action for some autoresponder handlers"},
        {std::string(200, 'm'), "a.test," + std::string(60, 'd') + ".test", "Unable to make action for some autoresponder handlers"},
    };
    for (const auto& c : cases) {
        g_logged.clear();
        for (int action : {AUTORESPONDER_ADD, AUTORESPONDER_REMOVE}) {
            EXPECT_EQ(autoresponder_action(c.mailnames.c_str(), c.domains.c_str(), action), -1) << c.mailnames << " / " << c.domains;
            ASSERT_FALSE(g_logged.empty());
            EXPECT_EQ(g_logged.back(), c.message) << c.mailnames << " / " << c.domains;
        }
        EXPECT_EQ(all(), Rows{row("keep@a.test")}) << c.mailnames << " / " << c.domains;
    }
}

TEST_F(Autoresponder, AnOverlongAddressIsReportedAsSuch)
{
    const std::string mailname(240, 'm');
    EXPECT_EQ(autoresponder_action(mailname.c_str(), "abcdefghijklmn.test", AUTORESPONDER_ADD), -1);
    EXPECT_EQ(g_logged, (std::vector<std::string>{"domain name too long\n",
                                                  "Unable to make action for some autoresponder handlers"}));
    EXPECT_EQ(all(), Rows{});
}

}  // namespace

// The panel database on a real MariaDB server (sandbox/mariadb.sh), where the commands' rows do
// not reach: escaping behind the name checks, the misc settings' exact values, failures of one
// alias.
#include "auth/panel_db.h"

#include <gtest/gtest.h>

#include "auth/mysql_connection.h"
#include "auth/panel_passwd.h"
#include "passwd_fixture.h"
#include "support/capture.h"

namespace {

// Panel rows: main.test with the aliases alias1.test and alias2.test, and a domain whose name
// holds a quote and a backslash, with an alias of its own.
class PanelTest : public PasswdDbFixture {
protected:
    void SetUp() override
    {
        PasswdDbFixture::SetUp();
        panel_ = db_connect();
        ASSERT_TRUE(panel_) << "the sandbox's MariaDB server is not reachable";
        for (const char* table : {"domains", "domainaliases", "misc"})
            sql(std::string("DELETE FROM ") + table);
        sql("INSERT INTO domains (id, name) VALUES (1, 'main.test'), (3, 'o\\'hara\\\\x.test')");
        sql("INSERT INTO domainaliases (name, dom_id) VALUES ('alias1.test', 1), ('alias2.test', 1), "
            "('quoted-alias.test', 3)");
        sql("INSERT INTO misc (param, val) VALUES ('message_submission', 'true'), ('capital', 'True'), "
            "('digit', '1')");
    }

    void sql(const std::string& statement)
    {
        ASSERT_EQ(mysql_query(panel_.get(), statement.c_str()), 0) << statement << ": " << mysql_error(panel_.get());
    }

    MysqlHandle panel_;
};

TEST_F(PanelTest, QuotesAndBackslashesCannotChangeAQuery)
{
    EXPECT_EQ(mysql_real_escape_entity(panel_.get(), "a'b\\c\"d"), "a\\'b\\\\c\\\"d");

    StringList list;
    ASSERT_EQ(get_domaliases_by_domain(nullptr, list, "o'hara\\x.test"), 0);
    EXPECT_EQ(list, StringList(std::vector<std::string>{"quoted-alias.test"}));
    for (const char* attack : {"x' OR '1'='1", "x\\' OR 1=1 -- "}) {
        ASSERT_EQ(get_domaliases_by_domain(nullptr, list, attack), 0) << attack;
        EXPECT_FALSE(list) << attack;
        ASSERT_EQ(get_aliases_by_mailname(nullptr, list, attack, attack), 0) << attack;
        EXPECT_FALSE(list) << attack;
    }
}

TEST_F(PanelTest, MiscSettingsAreTrueOnlyForExactTrue)
{
    using quelt::mail::restore::getBoolMiscParamSafe;
    quelt::mysql::Connection connection(true);
    EXPECT_TRUE(getBoolMiscParamSafe("message_submission", connection, false));
    for (const char* name : {"capital", "digit", "missing"}) {
        EXPECT_FALSE(getBoolMiscParamSafe(name, connection, false)) << name;
    }

    sql("RENAME TABLE misc TO misc_away");
    const std::string err = stderrOf([&] { EXPECT_FALSE(getBoolMiscParamSafe("message_submission", connection, false)); });
    sql("RENAME TABLE misc_away TO misc");
    EXPECT_EQ(err, "Warning: MySQL Error on Mail Authentication Type query: MySQL error 1146: Table "
                          "'zvt.misc' doesn't exist executing query: SELECT    val  FROM misc    WHERE "
                          "param='message_submission', ignored\n");
}

TEST_F(PanelTest, FailingActionStopsAndReports)
{
    const std::string err = stderrOf([] {
        EXPECT_EQ(domain_auth_action("main.test", [](const std::string& d) { return d == "main.test" ? 0 : -1; },
                                     "enable auth records"),
                  -1);
    });
    EXPECT_TRUE(err == "Unable to enable auth records for domain alias alias1.test\n" ||
                err == "Unable to enable auth records for domain alias alias2.test\n")
        << err;

    mailAuthDBSetPath(dir_.file("missing/passwd.db"));
    const std::string err2 =
        stderrOf([] { EXPECT_EQ(set_passwd_for_domains("info", "main.test", std::string("pw"), kMailAuthHashed), -1); });
    EXPECT_NE(err2.find("Unable to set password for mailname info@main.test\n"), std::string::npos) << err2;
}

}  // namespace

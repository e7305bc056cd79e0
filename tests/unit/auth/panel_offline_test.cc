// The panel database client when no server answers (the sandbox hides every server socket).
#include <gtest/gtest.h>

#include <fstream>

#include "support/capture.h"
#include "auth/mysql_connection.h"
#include "auth/panel_db.h"

namespace {

class PanelOfflineTest : public ::testing::Test {
protected:
    void SetUp() override { std::ofstream(kPanelPasswordFile) << "secret\n"; }
};

TEST_F(PanelOfflineTest, QueryWithoutServerLogsAndFails)
{
    StringList list;
    CaptureFd err(2);
    EXPECT_EQ(exec_mysql_query(nullptr, "SELECT 1", list), -1);
    err.restore();
    EXPECT_EQ(err.text().rfind("Unable to connect to Quelt Database: Can't connect to local server through socket "
                               "'/run/mysqld/mysqld.sock' (2)",
                               0),
              0u)
        << err.text();
    EXPECT_NE(err.text().find("\nUnable to connect to mysql database\n"), std::string::npos) << err.text();
    EXPECT_EQ(get_dom_Limit("1", "mbox_quota", nullptr), std::nullopt);
}

TEST_F(PanelOfflineTest, MissingPasswordFileIsReported)
{
    ::unlink(kPanelPasswordFile);
    std::string error;
    EXPECT_FALSE(quelt_db_connect(error));
    EXPECT_EQ(error, "Unable to open admin password file: No such file or directory");
}

TEST_F(PanelOfflineTest, ConnectionClassThrows)
{
    try {
        quelt::mysql::Connection connection(true);
        ADD_FAILURE() << "a connection without a server";
    } catch (const quelt::mysql::mError& e) {
        EXPECT_STREQ(e.what(), "connection failed");
    }
}

// Escaping needs a connection: a lookup without one cannot build its query and ends the process.
TEST_F(PanelOfflineTest, LookupWithoutConnectionEndsTheProcess)
{
    StringList list;
    EXPECT_EXIT(get_domaliases_by_domain(nullptr, list, "example.com"), ::testing::ExitedWithCode(1),
                "Unable to connect to mysql database for query escape");
}

}  // namespace

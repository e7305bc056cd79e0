// The panel database client when no server answers (the sandbox hides every server socket).
#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/io.h"
#include "auth/mysql_connection.h"
#include "auth/panel_db.h"

namespace {

class PanelOfflineTest : public ::testing::Test {
protected:
    void SetUp() override { writeFile(kPanelPasswordFile, "secret\n"); }
};

TEST_F(PanelOfflineTest, QueryWithoutServerLogsAndFails)
{
    StringList list;
    const std::string err = stderrOf([&] { EXPECT_EQ(exec_mysql_query(nullptr, "SELECT 1", list), -1); });
    EXPECT_EQ(err.rfind("Unable to connect to Quelt Database: Can't connect to local server through socket "
                        "'/run/mysqld/mysqld.sock' (2)", 0), 0u) << err;
    EXPECT_NE(err.find("\nUnable to connect to mysql database\n"), std::string::npos) << err;
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
    EXPECT_EQ(thrownWhat<quelt::mysql::mError>([] { quelt::mysql::Connection connection(true); }), "connection failed");
}

// Escaping needs a connection: a lookup without one cannot build its query and ends the process.
TEST_F(PanelOfflineTest, LookupWithoutConnectionEndsTheProcess)
{
    StringList list;
    EXPECT_EXIT(get_domaliases_by_domain(nullptr, list, "example.com"), ::testing::ExitedWithCode(1),
                "Unable to connect to mysql database for query escape");
}

}  // namespace

// Mailbox quotas by name beside the sandbox's MariaDB server: attachments against the quota,
// the panel's domain limits (also through a webspace), defaults that spare mailboxes with a
// quota of their own, and the manager's errors. The mailbox size is a row of the commands.
#include "auth/panel_db.h"
#include "storage/fs_error.h"
#include "storage/maildirpp.h"
#include "storage/maildirpp_manager.h"
#include "storage/mbox_quota.h"
#include "storage_fixture.h"

namespace fs = boost::filesystem;
using quelt::mail::MaildirPPManager;
using namespace storage_test;

namespace {

std::string maildirsizeOf(const std::string& domain, const std::string& mailname)
{
    return readFile(kRoot + "/" + domain + "/" + mailname + "/Maildir/maildirsize");
}

// Panel rows: main.test (limit 1048576; mailnames info without a quota of its own, sales with
// 5000, odd without one either), hosted.test inside main.test's webspace with a
// limit of its own that must not be used, bare.test without limits, xn--bcher-kva.test.
class MboxQuotaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        panel_ = db_connect();
        ASSERT_TRUE(panel_) << "the sandbox's MariaDB server is not reachable";
        for (const char* table : {"domains", "mail", "Limits"})
            sql(std::string("DELETE FROM ") + table);
        sql("INSERT INTO domains (id, name, webspace_id, limits_id) VALUES "
            "(1, 'main.test', 0, 5), (2, 'hosted.test', 1, 6), (3, 'bare.test', 0, NULL), "
            "(4, 'xn--bcher-kva.test', 0, 5)");
        sql("INSERT INTO mail (mail_name, dom_id, mbox_quota) VALUES ('info', 1, -1), "
            "('sales', 1, 5000), ('odd', 1, -1), ('info', 2, -1), ('info', 3, -1)");
        sql("INSERT INTO Limits (id, limit_name, value) VALUES (5, 'mbox_quota', '1048576'), "
            "(6, 'mbox_quota', '42')");
        fs::remove_all(kRoot);
        for (const std::string address : {"main.test/info", "main.test/sales", "main.test/odd", "hosted.test/info",
                                          "bare.test/info", "xn--bcher-kva.test/info"}) {
            const auto slash = address.find('/');
            MaildirPPManager::getInstance().createMailnameHome(address.substr(0, slash), address.substr(slash + 1));
            fs::remove(kRoot + "/" + address + "/@attachments");
        }
    }
    void TearDown() override { fs::remove_all(kRoot); }

    void sql(const std::string& statement)
    {
        ASSERT_EQ(mysql_query(panel_.get(), statement.c_str()), 0)
            << statement << ": " << mysql_error(panel_.get());
    }

    MysqlHandle panel_;
};

TEST_F(MboxQuotaTest, StoreChargesAttachmentsConvertsTheDomainAndReportsAMissingMailbox)
{
    ASSERT_EQ(store_mbox_quota("b\xc3\xbc" "cher.test", "info", 0), 1);
    EXPECT_EQ(maildirsizeOf("xn--bcher-kva.test", "info"), "1S,0C\n" + kEmptyUsage);

    const std::string attachments = kRoot + "/main.test/info/@attachments";
    fs::create_directory(attachments);
    const long long own = lstatOf(attachments).st_size;
    ASSERT_EQ(store_mbox_quota("main.test", "info", -1), 1);
    EXPECT_EQ(maildirsizeOf("main.test", "info"), "0S,0C\n" + kEmptyUsage);
    ASSERT_EQ(store_mbox_quota("main.test", "info", 10000), 1);
    EXPECT_EQ(maildirsizeOf("main.test", "info"),
              std::to_string(10000 - own) + "S,0C\n" + kEmptyUsage);

    EXPECT_EQ(stderrOf([&] { ASSERT_EQ(store_mbox_quota("main.test", "info", own - 1), 1); }),
              "WARNING: @attachments directory is big enough to disable delivery!\n");
    EXPECT_EQ(maildirsizeOf("main.test", "info"), "1S,0C\n" + kEmptyUsage);
    EXPECT_EQ(stderrOf([] { EXPECT_EQ(store_mbox_quota("main.test", "nobody", 10), 0); }),
              "unable to change to mbox folder " + kRoot + "/main.test/nobody: No such file or directory\n"
              "System error 2: No such file or directory\n");
}

TEST_F(MboxQuotaTest, RemovalFallsBackToTheDomainsLimit)
{
    const struct {
        std::string domain;
        std::string definition;
    } cases[] = {
        {"main.test", "1048576S,0C\n"},
        {"hosted.test", "1048576S,0C\n"},  // the webspace's limit, not its own 42
        {"bare.test", "0S,0C\n"},          // no limit at all
    };
    for (const auto& c : cases) {
        ASSERT_EQ(rm_mbox_quota(c.domain, "info"), 1) << c.domain;
        EXPECT_EQ(maildirsizeOf(c.domain, "info"), c.definition + kEmptyUsage) << c.domain;
    }
    EXPECT_EQ(stderrOf([] { EXPECT_EQ(rm_mbox_quota("unknown.test", "info"), 0); }), "No such domain unknown.test\n");
}

TEST_F(MboxQuotaTest, ManagerTurnsFailuresIntoFSError)
{
    fs::remove_all(kRoot + "/main.test/odd");
    using quelt::mail::FSError;
    auto& manager = MaildirPPManager::getInstance();
    const std::string err = stderrOf([&] {
        EXPECT_EQ(thrownWhat<FSError>([&] { manager.setDomainQuota("main.test", 7000); }),
                  "unable to store domain quota: Success: \"main.test\"");
        EXPECT_EQ(thrownWhat<FSError>([&] { manager.removeMailboxQuota("unknown.test", "info"); }),
                  "unable to remove quota: Success: \"" + kRoot + "/unknown.test/info\"");
    });
    EXPECT_NE(err.find("unable to set default mbox quota for domain 'main.test' (processing 'odd')"), std::string::npos)
        << err;
}

}  // namespace

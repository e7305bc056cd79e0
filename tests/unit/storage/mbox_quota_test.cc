// A mailbox quota removed falls back to its domain's limit from the panel database, through the
// webspace a domain is hosted in, less the mailbox's attachments; beside the sandbox's MariaDB
// server. The commands' rows only see domains without a limit, and homes without attachments.
#include "auth/panel_db.h"
#include "storage/mbox_quota.h"
#include "storage/maildir_manager.h"
#include "storage_fixture.h"

namespace fs = boost::filesystem;
using namespace storage_test;

namespace {

TEST(MboxQuota, RemovalFallsBackToTheDomainsLimit)
{
    MysqlHandle panel = db_connect();
    ASSERT_TRUE(panel) << "the sandbox's MariaDB server is not reachable";
    // hosted.test lives in main.test's webspace and has a limit of its own that must not be used.
    for (const char* statement :
         {"DELETE FROM domains", "DELETE FROM mail", "DELETE FROM Limits",
          "INSERT INTO domains (id, name, webspace_id, limits_id) VALUES (1, 'main.test', 0, 5), "
          "(2, 'hosted.test', 1, 6), (3, 'bare.test', 0, NULL)",
          "INSERT INTO mail (mail_name, dom_id, mbox_quota) VALUES ('info', 1, -1), ('info', 2, -1), "
          "('info', 3, -1)",
          "INSERT INTO Limits (id, limit_name, value) VALUES (5, 'mbox_quota', '1048576'), "
          "(6, 'mbox_quota', '42')"})
        ASSERT_EQ(mysql_query(panel.get(), statement), 0) << statement << ": " << mysql_error(panel.get());
    fs::remove_all(kRoot);
    quelt::mail::MaildirManager::getInstance().createMailnameHome("main.test", "info");
    writeFile(kRoot + "/main.test/info/@attachments/a.bin", std::string(1000, 'a'));
    const long long attached = 1000 + lstatOf(kRoot + "/main.test/info/@attachments").st_size;
    const struct {
        std::string domain;
        std::string definition;
    } cases[] = {
        {"main.test", std::to_string(1048576 - attached) + "S,0C\n"},
        {"hosted.test", "1048576S,0C\n"},
        {"bare.test", "0S,0C\n"},
    };
    for (const auto& c : cases) {
        quelt::mail::MaildirManager::getInstance().createMailnameHome(c.domain, "info");
        if (c.domain != "main.test")
            fs::remove(kRoot + "/" + c.domain + "/info/@attachments");
        ASSERT_EQ(rm_mbox_quota(c.domain, "info"), 1) << c.domain;
        EXPECT_EQ(readFile(kRoot + "/" + c.domain + "/info/Maildir/maildirsize"), c.definition + kEmptyUsage)
            << c.domain;
    }
    EXPECT_EQ(stderrOf([] { EXPECT_EQ(rm_mbox_quota("unknown.test", "info"), 0); }), "No such domain unknown.test\n");
    fs::remove_all(kRoot);
}

}  // namespace

// What the table store refuses and how a rewrite replaces a table, against the real postmap in
// the sandbox (that every change waits for its table's lock is the domain scenario's, and what a
// postmap run inherits the mailname scenario's).
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "runtime/errors.h"
#include "support/capture.h"
#include "tables/database_helper.h"
#include "tables/record_filters.h"

namespace {

namespace pf = quelt::mail::postfix;
namespace db = quelt::mail::postfix::database;
using pf::DatabaseHelper;
using Records = std::list<std::pair<std::string, std::string>>;

const std::string kDir = "/var/spool/postfix/quelt/";
const std::string kVirtual = "hash:" + kDir + "virtual";

class Store : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const auto& entry : std::filesystem::directory_iterator(kDir))
            std::filesystem::remove(entry.path());
        shellOutput("printf 'keep 1\\n' | postmap -r -i " + kVirtual);
    }
    // The table's records as postmap dumps them, "key<TAB>value" lines in byte order.
    static std::string dump() { return shellOutput("postmap -s " + kVirtual + " 2>&1 | LC_ALL=C sort"); }
    // Files beside the tables other than the tables themselves.
    static std::set<std::string> strays()
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(kDir))
            if (entry.path().extension() != ".db" || entry.path().filename().string()[0] == '.')
                names.insert(entry.path().filename().string());
        return names;
    }
};

TEST_F(Store, UnreadableRecordsAreRefusedAndChangeNothing)
{
    const struct {
        std::string key, value, shownKey;  // shownKey: as the message quotes it
    } cases[] = {
        {"a b@d.com", "x", "a b@d.com"},
        {"inj.test\nroot@base.test", "attacker@evil.example", "inj.test\\nroot@base.test"},
        {"cr\r@d.com", "x", "cr\\r@d.com"},
        {"#x.test", "x", "#x.test"},
        {"", "x", ""},
        {"ok@d.com", "x\nroot@base.test y", "ok@d.com"},
    };
    for (const auto& c : cases) {
        const Records recs{{"fine@d.com", "x"}, {c.key, c.value}};
        const std::string added = thrownWhat<pf::PostfixConfigurationError>(
            [&] { DatabaseHelper::addRecords(kVirtual, recs.begin(), recs.end()); });
        EXPECT_NE(added.find("\"" + c.shownKey + "\""), std::string::npos) << added;
        EXPECT_THROW(DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end()),
                     pf::PostfixConfigurationError) << c.shownKey;
        if (c.key != "ok@d.com") {  // the key alone is fine to remove
            EXPECT_THROW(DatabaseHelper::removeRecord(kVirtual, c.key), pf::PostfixDatabaseError) << c.shownKey;
        }
    }
    EXPECT_EQ(dump(), "keep\t1\n");
    EXPECT_EQ(strays(), std::set<std::string>{});
}

TEST_F(Store, ARecordPostmapSkipsIsAFailure)
{
    const std::string what = thrownWhat<pf::PostfixConfigurationError>(
        [] { DatabaseHelper::addRecord(kVirtual, "q\"@d.com", "x"); });
    EXPECT_NE(what.find("ignoring this line"), std::string::npos) << what;
    const Records recs{{"new", "1"}, {"\"q@d.com", "x"}};
    EXPECT_THROW(DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end()),
                 pf::PostfixConfigurationError);
    EXPECT_EQ(dump(), "keep\t1\n") << "a failed rewrite leaves the table as it was";
    EXPECT_EQ(strays(), std::set<std::string>{});
}

TEST_F(Store, ARewriteReplacesTheTableWholeKeepingOwnerAndMode)
{
    const std::string db = kDir + "virtual.db";
    ASSERT_EQ(::chmod(db.c_str(), 0640), 0);
    shellOutput("chown postfix:root " + db);
    const struct stat before = lstatOf(db);
    // What killed rewrites leave: a staged text and index, and an older version's text file.
    for (const char* left : {".virtual.tmp.AbC123", ".virtual.tmp.AbC123.db", "virtual"})
        writeFile(kDir + left, "dead 1\n");

    const Records recs{{"new", "2"}};
    DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end());
    const struct stat after = lstatOf(db);
    EXPECT_EQ(dump(), "new\t2\n");
    EXPECT_NE(after.st_ino, before.st_ino) << "the new table comes in by a rename";
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(strays(), std::set<std::string>{}) << "no text at the table's path, no staged file";

    // A table built for the first time gets the mode of any new file, as postmap gives it.
    writeFile(kDir + "probe", "");
    const Records none;
    DatabaseHelper::replaceRecords("hash:" + kDir + "vmailbox", none.begin(), none.end());
    EXPECT_EQ(lstatOf(kDir + "vmailbox.db").st_mode, lstatOf(kDir + "probe").st_mode);
    std::filesystem::remove(kDir + "probe");

    const db::ElementsFilter<db::NotInDomainFilter> drop(db::NotInDomainFilter("d.com", false));
    DatabaseHelper::filterRecords(kVirtual, drop);
    EXPECT_EQ(lstatOf(db).st_ino, after.st_ino) << "a pass that changes nothing renames nothing";
    EXPECT_EQ(lstatOf(db).st_mtim.tv_nsec, after.st_mtim.tv_nsec);
}

}  // namespace

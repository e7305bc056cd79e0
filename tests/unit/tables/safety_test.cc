// What the table store refuses, how a rewrite replaces a table, and what a postmap child
// inherits: against the real postmap in the sandbox (that every change waits for its table's
// lock is the domain scenario's).
#include "tables/store_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/errors.h"

namespace {

using pf::DatabaseHelper;

TEST_F(Store, UnreadableRecordsAreRefusedBeforeAnyRun)
{
    const struct {
        std::string key;
        std::string value;
        std::string shownKey;  // as the message quotes it
    } cases[] = {
        {"a b@d.com", "x", "a b@d.com"},
        {"a\tb@d.com", "x", "a\\tb@d.com"},
        {"inj.test\nroot@base.test", "attacker@evil.example", "inj.test\\nroot@base.test"},
        {"cr\r@d.com", "x", "cr\\r@d.com"},
        {"#x.test", "x", "#x.test"},
        {"", "x", ""},
        {"ok@d.com", "x\nroot@base.test y", "ok@d.com"},
    };
    seed(kVirtual, "keep 1\\n");
    spy_->clear();
    for (const auto& c : cases) {
        const Records recs{{"fine@d.com", "x"}, {c.key, c.value}};
        const std::string added = thrownWhat<pf::PostfixConfigurationError>(
            [&] { DatabaseHelper::addRecords(kVirtual, recs.begin(), recs.end()); });
        EXPECT_NE(added.find(kVirtual), std::string::npos) << added;
        EXPECT_NE(added.find("\"" + c.shownKey + "\""), std::string::npos) << added;
        EXPECT_THROW(DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end()),
                     pf::PostfixConfigurationError) << c.shownKey;
        if (c.key == "ok@d.com")
            continue;  // the key alone is fine to remove
        const Keys keys{"fine@d.com", c.key};
        EXPECT_THROW(DatabaseHelper::removeRecords(kVirtual, keys.begin(), keys.end()),
                     pf::PostfixDatabaseError) << c.shownKey;
        EXPECT_THROW(DatabaseHelper::removeRecord(kVirtual, c.key), pf::PostfixDatabaseError) << c.shownKey;
    }
    EXPECT_TRUE(spy_->runs().empty()) << "a refused record must run no postmap";
    EXPECT_EQ(dump(kVirtual), "keep\t1\n");
}

TEST_F(Store, ARecordPostmapSkipsIsAFailure)
{
    seed(kVirtual, "keep 1\\n");
    const std::string what = thrownWhat<pf::PostfixConfigurationError>(
        [] { DatabaseHelper::addRecord(kVirtual, "q\"@d.com", "x"); });
    EXPECT_NE(what.find("postmap: warning: "), std::string::npos) << what;
    EXPECT_NE(what.find("ignoring this line"), std::string::npos) << what;

    const Records recs{{"new", "1"}, {"\"q@d.com", "x"}};
    EXPECT_THROW(DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end()),
                 pf::PostfixConfigurationError);
    EXPECT_EQ(dump(kVirtual), "keep\t1\n") << "a failed rewrite leaves the table as it was";
    EXPECT_EQ(strays(), std::set<std::string>{});
}

// A key "-" on postmap's command line would mean "read the keys from standard input".
TEST_F(Store, AKeyDashIsNoRequestToReadKeys)
{
    seed(kVirtual, "c 3\\n");
    DatabaseHelper::addRecord(kVirtual, "-", "1");
    ASSERT_EQ(dump(kVirtual), "-\t1\nc\t3\n");
    DatabaseHelper::removeRecord(kVirtual, "-");
    EXPECT_EQ(dump(kVirtual), "c\t3\n");
}

TEST_F(Store, ARewriteReplacesTheTableWholeKeepingOwnerAndMode)
{
    seed(kVirtual, "old 1\\n");
    const std::string db = kDir + "virtual.db";
    ASSERT_EQ(::chown(db.c_str(), 0, 0), 0);
    ASSERT_EQ(::chmod(db.c_str(), 0640), 0);
    shellOutput("chown postfix " + db);
    const struct stat before = lstatOf(db);
    // What killed rewrites leave: a staged text and index, and an older version's text file.
    for (const char* left : {".virtual.tmp.AbC123", ".virtual.tmp.AbC123.db", "virtual"})
        std::ofstream(kDir + left) << "dead 1\n";

    const Records recs{{"new", "2"}};
    DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end());
    const struct stat after = lstatOf(db);
    EXPECT_EQ(dump(kVirtual), "new\t2\n");
    EXPECT_NE(after.st_ino, before.st_ino) << "the new table comes in by a rename";
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(strays(), std::set<std::string>{}) << "no text at the table's path, no staged file";

    // A table built for the first time gets the mode of any new file, as postmap gives it.
    std::ofstream(kDir + "probe") << "";
    const Records none;
    DatabaseHelper::replaceRecords(kMailbox, none.begin(), none.end());
    EXPECT_EQ(lstatOf(kDir + "vmailbox.db").st_mode, lstatOf(kDir + "probe").st_mode);
    std::filesystem::remove(kDir + "probe");

    const db::ElementsFilter<db::NotInDomainFilter> drop(db::NotInDomainFilter("d.com", false));
    DatabaseHelper::filterRecords(kVirtual, drop);
    EXPECT_EQ(lstatOf(db).st_ino, after.st_ino) << "a pass that changes nothing renames nothing";
    EXPECT_EQ(lstatOf(db).st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(runs(), (std::vector<std::string>{"-r hash:" + kDir + ".virtual.tmp.XXXXXX",
                                                "-r hash:" + kDir + ".vmailbox.tmp.XXXXXX", "-s " + kVirtual}));
    EXPECT_EQ(strays(), std::set<std::string>{});
}

// Which descriptors each postmap run starts with, as the spy's shell sees its own.
TEST_F(Store, PostmapStartsWithTheStandardStreamsAlone)
{
    // One inherited from a caller, without close-on-exec.
    const int inherited = ::open("/etc/hostname", O_RDONLY);
    ASSERT_GE(inherited, 3);
    spy_->logDescriptors();
    seed(kVirtual, "a@d.com 1\\nb@e.com 2\\n");
    DatabaseHelper::addRecord(kVirtual, "c@e.com", "3");
    const db::ElementsFilter<db::NotInDomainFilter> drop(db::NotInDomainFilter("d.com", false));
    DatabaseHelper::filterRecords(kVirtual, drop);
    ::close(inherited);
    // bash keeps its script open as 255, close-on-exec, so postmap does not get it.
    EXPECT_EQ(spy_->descriptors(), (std::vector<std::string>{"0 1 2 255", "0 1 2 255", "0 1 2 255"}));
    EXPECT_EQ(dump(kVirtual), "b@e.com\t2\nc@e.com\t3\n");
}

}  // namespace

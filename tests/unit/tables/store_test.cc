// The table store and batches against the real postmap, in the sandbox, with a logging spy
// over /usr/sbin/postmap that counts runs and injects failures.
#include "tables/store_fixture.h"

#include "runtime/errors.h"
#include "tables/batch_database_helper.h"
#include "tables/database_helper.h"
#include "tables/record_filters.h"

namespace {

TEST_F(Store, AddRecordsIsOneRunAndLaterRecordsWin)
{
    const Records first{{"a@d.com", "x@y.net"}, {"b@d.com", "y@y.net"}, {"a@d.com", "z@y.net"}};
    pf::DatabaseHelper::addRecords(kVirtual, first.begin(), first.end());
    pf::DatabaseHelper::addRecord(kVirtual, "b@d.com", "w@y.net, v@y.net");
    EXPECT_EQ(dump(kVirtual), "a@d.com\tz@y.net\nb@d.com\tw@y.net, v@y.net\n");
    EXPECT_EQ(spy_->runs(), (std::vector<std::string>{"-r -i " + kVirtual, "-r -i " + kVirtual}));

    const std::vector<std::pair<std::string, std::string>> none;
    pf::DatabaseHelper::addRecords(kVirtual, none.begin(), none.end());
    const Keys noKeys;
    pf::DatabaseHelper::removeRecords(kVirtual, noKeys.begin(), noKeys.end());
    EXPECT_EQ(spy_->runs().size(), 2u) << "empty ranges must run no postmap";
}

TEST_F(Store, RemovalOfPresentAndAbsentKeys)
{
    seed(kVirtual, "a x\\nb y\\nc z\\n");
    pf::DatabaseHelper::removeRecord(kVirtual, "absent@d.com");
    pf::DatabaseHelper::removeRecord(kVirtual, "b");
    const Keys keys{"nothere", "a"};
    pf::DatabaseHelper::removeRecords(kVirtual, keys.begin(), keys.end());
    EXPECT_EQ(dump(kVirtual), "c\tz\n");
    EXPECT_EQ(spy_->runs(), (std::vector<std::string>{"-d absent@d.com " + kVirtual,
                                                      "-d b " + kVirtual, "-d - " + kVirtual}));
}

TEST_F(Store, FailuresCarryPostmapsOwnText)
{
    using pf::DatabaseHelper;
    const std::string fatal = "postmap: fatal: open database x.db: Permission denied\n";
    const Keys keys{"a"};
    const Records recs{{"a", "b"}};
    const auto removalError = [](auto body) { return thrownWhat<pf::PostfixDatabaseError>(body); };
    const auto additionError = [](auto body) { return thrownWhat<pf::PostfixConfigurationError>(body); };

    spy_->failWhen("-d *", fatal);
    EXPECT_EQ(removalError([] { DatabaseHelper::removeRecord(kVirtual, "a"); }), fatal);
    EXPECT_EQ(removalError([&] { DatabaseHelper::removeRecords(kVirtual, keys.begin(), keys.end()); }), fatal);
    // A non-zero exit whose diagnostics are only warnings counts as a done removal.
    spy_->failWhen("-d *", "postmap: warning: a: not found\n");
    EXPECT_NO_THROW(DatabaseHelper::removeRecord(kVirtual, "a"));
    spy_->failWhen("-d *", "", "KILL");
    EXPECT_THROW(DatabaseHelper::removeRecord(kVirtual, "a"), pf::PostfixDatabaseError);

    spy_->failWhen("-r -i *", fatal);
    EXPECT_EQ(additionError([&] { DatabaseHelper::addRecords(kVirtual, recs.begin(), recs.end()); }), fatal);
    spy_->failWhen("-r -i *", "");
    EXPECT_EQ(additionError([] { DatabaseHelper::addRecord(kVirtual, "a", "b"); }), "unknown error");

    // The real postmap, on a table in a missing folder.
    spy_->clear();
    const std::string table = "hash:/var/spool/postfix/nowhere/virtual";
    const std::string real = additionError([&] { DatabaseHelper::addRecord(table, "a", "b"); });
    EXPECT_NE(real.find("postmap: fatal: "), std::string::npos) << real;
    EXPECT_THROW(DatabaseHelper::removeRecord(table, "a"), pf::PostfixDatabaseError);
}

TEST_F(Store, ReplaceRecordsLeavesExactlyTheGivenRecordsAndNoTextFile)
{
    seed(kVirtual, "old x\\n");
    const Records recs{{"k1", "v1"}, {"k2", "v2, v3"}};
    pf::DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end());
    EXPECT_EQ(dump(kVirtual), "k1\tv1\nk2\tv2, v3\n");
    EXPECT_FALSE(std::filesystem::exists(kDir + "virtual"));
    EXPECT_TRUE(std::filesystem::exists(lockFileOf(kDir + "virtual")));
    EXPECT_EQ(runs(), std::vector<std::string>{"-r hash:" + kDir + ".virtual.tmp.XXXXXX"});

    const Records none;
    pf::DatabaseHelper::replaceRecords(kVirtual, none.begin(), none.end());
    EXPECT_EQ(dump(kVirtual), "");

    spy_->failWhen("-r hash:*", "postmap: fatal: nope\n");
    EXPECT_THROW(pf::DatabaseHelper::replaceRecords(kVirtual, recs.begin(), recs.end()),
                 pf::PostfixConfigurationError);
    EXPECT_FALSE(std::filesystem::exists(kDir + "virtual"));
}

TEST_F(Store, FilterRecordsRewritesThroughTheDumpAndNeverLeavesATextFile)
{
    seed(kVirtual, "a@d.com x@y.net\\nb@y.net a@d.com,c@y.net  e@d.com\\nd.com virtual\\nf@y.net a,b\\n");
    const db::ElementsFilter<db::NotInDomainFilter> drop(db::NotInDomainFilter("d.com", false));
    pf::DatabaseHelper::filterRecords(kVirtual, drop);
    EXPECT_EQ(dump(kVirtual), "b@y.net\tc@y.net\nf@y.net\ta, b\n");
    EXPECT_EQ(runs(), (std::vector<std::string>{"-s " + kVirtual, "hash:" + kDir + ".virtual.tmp.XXXXXX"}));
    EXPECT_FALSE(std::filesystem::exists(kDir + "virtual"));
    EXPECT_TRUE(std::filesystem::exists(lockFileOf(kDir + "virtual")));

    // A failed dump or rebuild leaves no text file either.
    seed(kVirtual, "a@d.com x@y.net\\nb@y.net c@y.net\\n");
    const auto filter = [&] { pf::DatabaseHelper::filterRecords(kVirtual, drop); };

    spy_->failWhen("-s *", "postmap: fatal: dump failed\n");
    EXPECT_EQ(thrownWhat<pf::PostfixConfigurationError>(filter), "postmap: fatal: dump failed\n");
    EXPECT_EQ(dump(kVirtual), "a@d.com\tx@y.net\nb@y.net\tc@y.net\nf@y.net\ta, b\n") << "table must be untouched";
    EXPECT_FALSE(std::filesystem::exists(kDir + "virtual"));

    spy_->failWhen("hash:*", "");
    EXPECT_EQ(thrownWhat<pf::PostfixConfigurationError>(filter), "unknown error");
    EXPECT_FALSE(std::filesystem::exists(kDir + "virtual"));
    EXPECT_TRUE(std::filesystem::exists(lockFileOf(kDir + "virtual")));
}

TEST_F(Store, ImmediateBatchRunsOncePerCall)
{
    pf::BatchDatabaseHelper batch(true, true);
    batch.addChange(kVirtual, "a", "1");
    batch.addChange(kVirtual, "b", "2");
    const std::vector<std::pair<std::string, std::string>> three{{"c", "3"}, {"d", "4"}, {"e", "5"}};
    batch.addChanges(kVirtual, three.begin(), three.end());
    const Keys gone{"a", "c"};
    batch.removeChanges(kVirtual, gone.begin(), gone.end());
    batch.commit();
    EXPECT_EQ(spy_->runs().size(), 4u);
    EXPECT_EQ(dump(kVirtual), "b\t2\nd\t4\ne\t5\n");
}

TEST_F(Store, CachedBatchCommitsTablesInNameOrderAdditionsFirst)
{
    pf::BatchDatabaseHelper batch(true, false);
    batch.addChange(kVirtual, "a", "1");
    batch.addChange(kMailbox, "m", "d/m/");
    batch.addChange(kVirtual, "b", "2");
    const Keys gone{"a"};
    batch.removeChanges(kVirtual, gone.begin(), gone.end());
    EXPECT_TRUE(spy_->runs().empty()) << "cached changes must wait for commit";
    batch.commit();
    EXPECT_EQ(spy_->runs(), (std::vector<std::string>{"-r -i " + kVirtual, "-r -i " + kMailbox,
                                                      "-d - " + kVirtual}));
    EXPECT_EQ(dump(kVirtual), "b\t2\n");
    EXPECT_EQ(dump(kMailbox), "m\td/m/\n");
    spy_->clear();
    batch.commit();
    EXPECT_TRUE(spy_->runs().empty()) << "commit must empty the caches";
}

TEST_F(Store, CachedBatchDroppedOrFailingAndReplaceMode)
{
    seed(kVirtual, "keep 1\\n");
    {
        pf::BatchDatabaseHelper batch(true, false);
        batch.addChange(kVirtual, "lost", "x");
    }
    EXPECT_TRUE(spy_->runs().empty());
    EXPECT_EQ(dump(kVirtual), "keep\t1\n");

    pf::BatchDatabaseHelper failing(true, false);
    failing.addChange(kVirtual, "n", "1");
    spy_->failWhen("-r -i *", "postmap: fatal: x\n");
    EXPECT_THROW(failing.commit(), pf::PostfixConfigurationError);
    spy_->clear();
    failing.commit();
    EXPECT_EQ(spy_->runs().size(), 1u) << "a failed commit keeps the additions cached";
    spy_->clear();

    pf::BatchDatabaseHelper replace(false, false);
    replace.addChange(kVirtual, "only", "1");
    replace.addChange(kVirtual, "other", "2");
    replace.commit();
    EXPECT_EQ(runs(), std::vector<std::string>{"-r hash:" + kDir + ".virtual.tmp.XXXXXX"});
    EXPECT_EQ(dump(kVirtual), "only\t1\nother\t2\n");
}

}  // namespace

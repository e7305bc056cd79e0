// Cached batches against the real postmap, in the sandbox, with a logging spy over
// /usr/sbin/postmap that counts runs and injects failures. The commands' immediate batches and
// single changes are their rows' business; no command caches a batch yet.
#include "tables/store_fixture.h"

#include "runtime/errors.h"
#include "tables/batch_database_helper.h"

namespace {

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

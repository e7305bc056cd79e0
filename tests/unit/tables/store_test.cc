// Cached batches against the real postmap, in the sandbox. No command caches a batch yet, so
// only the commit order is kept here; immediate batches are the commands' rows' business.
#include "tables/store_fixture.h"

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

}  // namespace

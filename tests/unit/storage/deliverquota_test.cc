// An independent referee: Courier's deliverquota enforces the limit that setMailboxQuota writes,
// and our usage figures agree with what it accounts for after its deliveries.
#include <unistd.h>

#include "runtime/launch.h"
#include "storage/maildirpp.h"
#include "storage/maildirpp_manager.h"
#include "storage/mbox_quota.h"
#include "storage_fixture.h"

namespace fs = boost::filesystem;
using namespace storage_test;

namespace {

const std::string kHome = kRoot + "/example.com/info";
const std::string kMaildir = kHome + "/Maildir";
constexpr int kOverQuota = 77;  // EX_NOPERM

std::string deliverquotaPath()
{
    for (const char* path : {"/usr/sbin/deliverquota", "/usr/sbin/deliverquota.maildrop",
                             "/usr/bin/deliverquota"})
        if (::access(path, X_OK) == 0)
            return path;
    return "";
}

// A message of exactly `bytes` bytes as deliverquota stores it.
std::string messageOf(size_t bytes)
{
    std::string text = "From: a@example.net\nTo: info@example.com\nSubject: test\n\n";
    text.resize(bytes - 1, 'x');
    return text + "\n";
}

// deliverquota's exit status and what it printed on standard error.
std::pair<int, std::string> deliver(size_t bytes)
{
    std::string out, err;
    const std::string program = deliverquotaPath();
    return {forkExecvGetInOutErrSuidEnv(messageOf(bytes), out, err, program, {program, kMaildir}, "", {}), err};
}

class DeliverquotaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(deliverquotaPath(), "") << "deliverquota (package maildrop) is not installed";
        fs::remove_all(kRoot);
        quelt::mail::MaildirManager::getInstance().createMailnameHome("example.com", "info");
        fs::remove(kHome + "/@attachments");  // its folder size would shift the limit
    }
    void TearDown() override { fs::remove_all(kRoot); }
};

TEST_F(DeliverquotaTest, EnforcesOurLimitAndAgreesWithOurAccounting)
{
    auto& manager = quelt::mail::MaildirPPManager::getInstance();
    manager.setMailboxQuota("example.com", "info", 3000);
    const struct {
        size_t bytes;
        int status;
    } steps[] = {
        {1000, 0},           // 1000 used
        {1000, 0},           // 2000
        {1500, kOverQuota},  // 3500 would exceed 3000
        {1000, 0},           // exactly 3000
        {1, kOverQuota},
    };
    for (const auto& step : steps) {
        const auto [status, err] = deliver(step.bytes);
        EXPECT_EQ(status, step.status) << step.bytes << " bytes: " << err;
    }

    // deliverquota appended its own lines; reading them gives what it accounts for.
    long long bytes = 0;
    unsigned long long count = 0;
    ASSERT_EQ(get_maildirpp_usage(kMaildir, bytes, count), 1) << readFile(kMaildir + "/maildirsize");
    EXPECT_EQ(bytes, 3000);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(get_mbox_size("info", "example.com", false), 3000);

    // Rewriting the file recounts the folder.
    EXPECT_EQ(deliver(65536).first, kOverQuota);
    manager.setMailboxQuota("example.com", "info", 100000);
    EXPECT_EQ(readFile(kMaildir + "/maildirsize"), "100000S,0C\n" + usageLine(3000, 3));
    EXPECT_EQ(deliver(100000 - 3000).first, 0);
    EXPECT_EQ(deliver(1).first, kOverQuota);
}

}  // namespace

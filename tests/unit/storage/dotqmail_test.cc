// .qmail delivery files in the sandbox: the order of the lines (the scenarios compare them as a
// set), one delivery line at the end, the legacy line dropped, owner and mode put back after
// every change even when someone else touched the file.
#include <unistd.h>

#include "runtime/errors.h"
#include "storage/dotqmail.h"
#include "storage_fixture.h"

namespace fs = boost::filesystem;
using storage_test::kRoot;

namespace {

const std::string kHome = kRoot + "/example.com/info";
const std::string kPath = kHome + "/.qmail";
const std::string kDelivery = "| /usr/bin/deliverquota ./Maildir\n";

class DotQMailTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::remove_all(kRoot);
        ::umask(0);
        fs::create_directories(kHome);
    }
    void TearDown() override
    {
        fs::remove_all(kRoot);
        ::umask(022);
    }

    // Hands the file to root with mode 0644, so the next change has to put owner and mode back.
    static void spoil()
    {
        ASSERT_EQ(::chown(kPath.c_str(), 0, 0), 0);
        ASSERT_EQ(::chmod(kPath.c_str(), 0644), 0);
    }
};

TEST_F(DotQMailTest, EveryChangeLeavesExactLinesOwnedByPopuser)
{
    quelt::mail::DotQMailManager file(kPath);
    using Position = quelt::mail::DotQMailManager::Position;
    writeFile(kPath, "stale\n");
    const struct {
        const char* step;
        std::function<void()> change;
        std::string content;
    } steps[] = {
        {"reset", [&] { file.reset(); }, "| true\n"},
        {"enable", [&] { file.enableDelivery(); }, "| true\n" + kDelivery},
        {"enable again", [&] { file.enableDelivery(); }, "| true\n" + kDelivery},
        {"forward", [&] { file.addRedirect("a@example.net", Position::End); },
         "| true\n" + kDelivery + "&a@example.net\n"},
        {"second forward", [&] { file.addRedirect("b@example.net", Position::End); },
         "| true\n" + kDelivery + "&a@example.net\n&b@example.net\n"},
        {"enable after forwards", [&] { file.enableDelivery(); },
         "| true\n&a@example.net\n&b@example.net\n" + kDelivery},
        {"first forward again", [&] { file.addRedirect("a@example.net", Position::End); },
         "| true\n&b@example.net\n" + kDelivery + "&a@example.net\n"},
        {"remove forward", [&] { file.removeRedirect("b@example.net"); },
         "| true\n" + kDelivery + "&a@example.net\n"},
        {"disable", [&] { file.disableDelivery(); }, "| true\n&a@example.net\n"},
        {"disable again", [&] { file.disableDelivery(); }, "| true\n&a@example.net\n"},
        {"reset at the end", [&] { file.reset(); }, "| true\n"},
    };
    for (const auto& s : steps) {
        spoil();
        s.change();
        EXPECT_EQ(readFile(kPath), s.content) << s.step;
        EXPECT_EQ(storage_test::popuserOwns(kPath, 0600), "ok") << s.step;
    }
}

TEST_F(DotQMailTest, TheLegacyLineGoesAndAMissingFileFails)
{
    writeFile(kPath, "./Maildir/\n&x@example.net\n");
    ASSERT_EQ(dotqmail_add_delivery(kPath), 0);
    EXPECT_EQ(readFile(kPath), "&x@example.net\n" + kDelivery);

    writeFile(kPath, kDelivery + "./Maildir/\n&x@example.net\n");
    ASSERT_EQ(dotqmail_remove_delivery(kPath), 0);
    EXPECT_EQ(readFile(kPath), "&x@example.net\n");

    // A file that is gone is a failure of the manager, not a silent success.
    fs::remove(kPath);
    quelt::mail::DotQMailManager missing(kPath);
    stderrOf([&] { EXPECT_THROW(missing.disableDelivery(), quelt::SystemError); });
}

}  // namespace

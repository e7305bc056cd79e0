// .qmail delivery files in the sandbox: exact lines, one delivery line at the end, forwards in
// ASCII form, owner and mode after every change, paths and failure reports.
#include <unistd.h>

#include "runtime/errors.h"
#include "storage/dotqmail.h"
#include "storage/maildir_manager.h"
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
        {"second forward", [&] { file.addRedirect("b@example.net", Position::Beginning); },
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

TEST_F(DotQMailTest, TheLegacyLineGoesWhenDeliveryIsSwitched)
{
    writeFile(kPath, "./Maildir/\n&x@example.net\n");
    ASSERT_EQ(dotqmail_add_delivery(kPath), 0);
    EXPECT_EQ(readFile(kPath), "&x@example.net\n" + kDelivery);

    writeFile(kPath, kDelivery + "./Maildir/\n&x@example.net\n");
    ASSERT_EQ(dotqmail_remove_delivery(kPath), 0);
    EXPECT_EQ(readFile(kPath), "&x@example.net\n");
}

TEST_F(DotQMailTest, FailuresArePrintedOnceAndThrownByTheManager)
{
    const std::string missingDir = kRoot + "/nowhere/info/.qmail";
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(dotqmail_reset(missingDir), -1); }),
              "Unable to open " + missingDir + ": No such file or directory\nSystem error 2: No such file or directory\n");
    const std::string idn = stderrOf([] { EXPECT_EQ(dotqmail_add_forward(kPath, "user@bad..example"), -1); });
    EXPECT_EQ(idn.rfind("idn_email_toascii(user@bad..example) failed: ", 0), 0u) << idn;

    quelt::mail::DotQMailManager missing(kPath);  // no file yet: nothing to remove from
    std::string thrown;
    const std::string err = stderrOf([&] { thrown = thrownWhat<quelt::SystemError>([&] { missing.disableDelivery(); }); });
    EXPECT_EQ(thrown.rfind("unable to modify " + kPath + ": ", 0), 0u) << thrown;
    EXPECT_NE(err.find("Unable to remove string from " + kPath + " file"), std::string::npos) << err;
}

TEST(DotQMailPathTest, PathsUseTheAsciiDomainAndValidMailnames)
{
    std::string path;
    ASSERT_EQ(get_dotqmail_path(path, kDotQMailPathMax, "info", "b\xc3\xbc" "cher.example"), 0);
    EXPECT_EQ(path, kRoot + "/xn--bcher-kva.example/info/.qmail");
    ASSERT_EQ(get_mailhome_path(path, kDotQMailPathMax, "info", "example.com"), 0);
    EXPECT_EQ(path, kRoot + "/example.com/info");

    const std::string fits = kRoot + "/example.com/info/.qmail";
    EXPECT_EQ(get_dotqmail_path(path, fits.size() + 1, "info", "example.com"), 0);

    const std::string kEmpty = "empty mailname or maildomain\n";
    const struct {
        std::string mailname, domain;
        size_t size;
        std::string message;
    } failures[] = {
        {".info", "example.com", kDotQMailPathMax, kEmpty}, {"", "example.com", kDotQMailPathMax, kEmpty},
        {"info", "", kDotQMailPathMax, kEmpty},
        {"info", "example.com", fits.size(),
         "Either domain name 'example.com' or mailname 'info' are too long to store .qmail path "
         "in the provided buffer\n"},
    };
    for (const auto& f : failures) {
        path = "untouched";
        EXPECT_EQ(stderrOf([&] { EXPECT_EQ(get_dotqmail_path(path, f.size, f.mailname, f.domain), -1); }), f.message)
            << f.mailname << "@" << f.domain;
        EXPECT_EQ(path, "untouched");
    }
    EXPECT_EQ(stderrOf([&] { EXPECT_EQ(get_mailhome_path(path, 10, "info", "example.com"), -1); }),
              "Either domain name 'example.com' or mailname 'info' are too long to store "
              "mailname home path in the provided buffer\n");
}

}  // namespace

// master.cf parsed: the entries the grammar finds in Debian's file, and refusals (that whatever
// parses writes back byte for byte is the fuzz target's property, seeded with hand-edited files).
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "config/master/master_cf_file.h"
#include "support/io.h"

namespace pf = quelt::mail::postfix;

namespace {

constexpr const char* kDebianMasterCf = "/usr/share/postfix/master.cf.dist";

std::unique_ptr<pf::MasterCfContent> parsed(const std::string& text)
{
    return pf::parseMasterCf(text.data(), text.size());
}


TEST(MasterCfText, EntriesCarryTheirColumnsAndCommand)
{
    auto content = parsed(readFile(kDebianMasterCf));
    ASSERT_TRUE(content);
    auto [tlsmgr, tlsLine] = content->getModule("tlsmgr", pf::unix);
    EXPECT_EQ(tlsLine, "tlsmgr    unix  -       -       y       1000?   1       tlsmgr");
    EXPECT_EQ(tlsmgr.wakeup, 1000);
    EXPECT_TRUE(tlsmgr.wakeupOnDemand);
    EXPECT_EQ(tlsmgr.maxproc, 1);
    EXPECT_TRUE(boost::indeterminate(tlsmgr.priv));
    auto [maildrop, dropLine] = content->getModule("maildrop", pf::unix);
    EXPECT_EQ(dropLine, "maildrop  unix  -       n       n       -       -       pipe\n"
                        "  flags=DRXhu user=vmail argv=/usr/bin/maildrop -d ${recipient}");
    EXPECT_EQ(maildrop.command.size(), 6u);
    EXPECT_TRUE(content->hasModule("postlog", pf::unix_dgram));
    EXPECT_TRUE(content->hasModule("smtp", pf::inet));
    EXPECT_TRUE(content->hasModule("smtp", pf::unix));
    EXPECT_FALSE(content->hasModule("smtps", pf::inet));  // commented out in the stock file
}

TEST(MasterCfText, RefusesWhatIsNoMasterCf)
{
    const std::string entry = "smtp inet n - y - - smtpd\n";
    // An upper-case service, an entry broken off after its chroot column, a 1 MB line, invalid
    // UTF-8 and a NUL in an entry are rows of the services scenario.
    const std::string refused[] = {
        "smtp Inet n - y - - smtpd\n",           // upper case type
        "smtp tcp n - y - - smtpd\n",            // unknown type
        "smtp inet x - y - - smtpd\n",           // flag
        "smtp inet n - y 60?? - smtpd\n",        // wakeup
        "smtp inet n - y - 99999999999 smtpd\n", // maxproc beyond int
        "smtp inet n - y - - smtpd # note\n",    // '#' inside an entry
        "  -o orphan=continuation\n" + entry,    // continuation with nothing to continue
        entry + "smtps inet n - n -\n  \n",      // broken off, continued by blanks only
        entry + std::string("# a NUL \0 in a comment\n", 23),
    };
    for (const std::string& text : refused)
        EXPECT_FALSE(parsed(text)) << text.substr(0, 80);
}

}  // namespace

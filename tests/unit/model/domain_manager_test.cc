// A domain alias renamed away from the host's own name (mail.sandbox.test in the sandbox),
// against the real postmap, with a spy over postmap that counts and fails runs.
#include "model/managers/domain_manager.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/tool_spy.h"
#include "tables/database_helper.h"
#include "tables/table_names.h"

namespace pf = quelt::mail::postfix;
namespace tb = quelt::mail::postfix::tables;
using pf::DomainManager;

namespace {

// A table's records as "key value" lines.
using Records = std::set<std::string>;

const std::string kHost = "mail.sandbox.test";
const std::string kVirtual = tb::kVirtual;

Records stdRecords(const std::string& domain)
{
    Records out;
    for (const char* w : {"postmaster", "mailer-daemon", "root", "anonymous", "drweb", "kluser"})
        out.insert(std::string(w) + "@" + domain + " " + w + "@localhost.localdomain");
    return out;
}

Records operator+(Records a, const Records& b)
{
    a.insert(b.begin(), b.end());
    return a;
}

// The host's own entry, in virtual while no domain takes its name.
Records hostEntry()
{
    return Records{kHost + " 1"} + stdRecords(kHost);
}

class DomainManagerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { spy_ = new ToolSpy("/usr/sbin/postmap"); }
    static void TearDownTestSuite() { delete spy_; }

    static void seed(const std::string& table, const Records& records)
    {
        std::vector<std::pair<std::string, std::string>> pairs;
        for (const auto& r : records)
            pairs.emplace_back(r.substr(0, r.find(' ')), r.substr(r.find(' ') + 1));
        pf::DatabaseHelper::replaceRecords(table, pairs.begin(), pairs.end());
    }

    // The records as the real postmap dumps them (its first tab shown as a space).
    static Records dump(const std::string& table)
    {
        std::istringstream all(shellOutput(spy_->real() + " -s " + table + " 2>&1 | sed 's/\\t/ /'"));
        Records out;
        for (std::string line; std::getline(all, line);)
            out.insert(line);
        return out;
    }

    static ToolSpy* spy_;
};

ToolSpy* DomainManagerTest::spy_ = nullptr;

// A domain alias that had the host's name (no command row renames one away from it): the host
// entry comes back whole; when making it fails, the renamed records stay, without the entry.
TEST_F(DomainManagerTest, AnAliasRenamedFromTheHostNameGivesTheHostEntryBack)
{
    const Records before = stdRecords(kHost) + Records{kHost + " 1", "info@" + kHost + " info@old.test"};
    const Records renamed = stdRecords("al2.test") + Records{"al2.test 1", "info@al2.test info@old.test"};
    seed(kVirtual, before);
    spy_->clear();
    DomainManager::renameDomainAlias(kHost, "al2.test");
    EXPECT_EQ(dump(kVirtual), renamed + hostEntry());

    const auto runs = spy_->runs();
    // The rewrite's rebuild: postmap with no option, on the new table beside virtual.
    const std::string staged = kVirtual.substr(0, kVirtual.rfind('/') + 1) + ".virtual.tmp.";
    bool rewritten = false;
    for (size_t n = 1; n <= runs.size(); ++n) {
        seed(kVirtual, before);
        spy_->clear();
        spy_->failRun(n, "postmap: fatal: injected failure\n");
        const std::string err =
            stderrOf([] { EXPECT_ANY_THROW(DomainManager::renameDomainAlias(kHost, "al2.test")); });
        EXPECT_EQ(dump(kVirtual), rewritten ? renamed : before) << runs[n - 1];
        EXPECT_EQ(err.find("CRITICAL"), std::string::npos) << runs[n - 1] << ": " << err;
        rewritten = rewritten || runs[n - 1].rfind(staged, 0) == 0;
    }
    EXPECT_TRUE(rewritten);
}

}  // namespace

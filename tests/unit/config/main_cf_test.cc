// main.cf changes against the real postconf in the sandbox, with a logging spy over
// /usr/sbin/postconf that counts runs and injects failures: which writes a list append makes,
// and the texts of failures no command provokes in the same way.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/maincf/main_cf_manager.h"
#include "runtime/errors.h"
#include "support/capture.h"
#include "support/tool_spy.h"

namespace pf = quelt::mail::postfix;

namespace {

class MainCf : public ::testing::Test {
protected:
    static void SetUpTestSuite() { spy_ = new ToolSpy("/usr/sbin/postconf"); }
    static void TearDownTestSuite() { delete spy_; }
    void SetUp() override
    {
        pf::MainCfManager::getInstance();  // built once; its own runs are not counted here
        spy_->clear();
    }

    // What main.cf holds now, read past the spy.
    static std::string stored(const std::string& name)
    {
        ageMainCf();
        std::string v = shellOutput(spy_->real() + " -h " + name + " 2>/dev/null");
        if (!v.empty() && v.back() == '\n')
            v.pop_back();
        return v;
    }
    static void store(const std::string& name, const std::string& value)
    {
        shellOutput(spy_->real() + " -e '" + name + "=" + value + "'");
        ageMainCf();
    }
    static size_t writes()
    {
        size_t n = 0;
        for (const auto& run : spy_->runs())
            n += run.compare(0, 3, "-e ") == 0;
        return n;
    }

    static ToolSpy* spy_;
    const pf::MainCfManager& cf = pf::MainCfManager::getInstance();
};

ToolSpy* MainCf::spy_ = nullptr;

TEST_F(MainCf, AppendToAList)
{
    struct Case {
        std::string name, before, item, after;
        size_t writes;
    };
    const std::vector<Case> cases = {
        {"mynetworks", "127.0.0.0/8 10.0.0.0/8", "10.0.0.0/8", "127.0.0.0/8 10.0.0.0/8", 1},
        {"mynetworks", "127.0.0.0/8", "10.0.0.0/8", "127.0.0.0/8, 10.0.0.0/8", 1},
        {"mynetworks", "", "10.0.0.0/8", "10.0.0.0/8", 1},
        {"mynetworks", "127.0.0.0/8,10.0.0.0/8", "10.0.0.0/8", "127.0.0.0/8,10.0.0.0/8", 1},
    };
    for (const auto& c : cases) {
        store(c.name, c.before);
        spy_->clear();
        cf.appendStringValue(c.name, c.item);
        EXPECT_EQ(stored(c.name), c.after) << c.name << " = " << c.before << " + " << c.item;
        EXPECT_EQ(writes(), c.writes) << c.name << " = " << c.before << " + " << c.item;
    }
}

TEST_F(MainCf, FailuresCarryPostconfsText)
{
    struct Case {
        std::string glob, text, code, want;
        bool write;
    };
    const std::vector<Case> cases = {
        {"-e *", "postconf: fatal: bad\n", "1", "postconf: fatal: bad\n", true},
        {"-e *", "", "KILL", "unknown error", true},
        {"-h *", "", "1", "unknown error", false},
        {"-h *", "postconf: fatal: broken main.cf\n", "0", "postconf: fatal: broken main.cf\n", false},
    };
    for (const auto& c : cases) {
        spy_->failWhen(c.glob, c.text, c.code);
        EXPECT_EQ(thrownWhat<pf::PostfixConfigurationError>([&] {
                      if (c.write)
                          cf.replaceStringValue("smtpd_banner", "x");
                      else
                          cf.getStringValue("myhostname", false);
                  }),
                  c.want)
            << c.glob << " " << c.code;
    }
    // Warnings with an empty value are a legitimate empty value.
    spy_->failWhen("-h *", "postconf: warning: x: unknown parameter\n", "0");
    EXPECT_EQ(cf.getStringValue("x", false), "");
}

}  // namespace

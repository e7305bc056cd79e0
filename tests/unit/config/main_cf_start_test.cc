// Building the main.cf manager: where config_directory comes from, and what happens when
// postconf cannot tell. Each case runs in a fresh child, since the manager is built once.
#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "config/maincf/main_cf_manager.h"
#include "runtime/errors.h"
#include "support/child.h"
#include "support/tool_spy.h"

namespace pf = quelt::mail::postfix;

namespace {

// Prints the main.cf path, or "error: " and the exception text.
int printInstance()
{
    try {
        std::cout << pf::MainCfManager::getInstance().mainCfPath() << std::endl;
    } catch (const pf::PostfixConfigurationError& e) {
        std::cout << "error: " << e.what() << std::endl;
    }
    return 0;
}

TEST(MainCfStart, ConfigDirectoryAndItsFallbacks)
{
    ToolSpy spy("/usr/sbin/postconf");
    EXPECT_EQ(runInChild(printInstance).out, "/etc/postfix/main.cf\n");
    EXPECT_EQ(spy.runs(), std::vector<std::string>{"-h config_directory"});

    spy.clear();
    spy.failWhen("-h config_directory", "postconf: fatal: unreadable\n");
    EXPECT_EQ(runInChild(printInstance).out, "/etc/postfix/main.cf\n");
    EXPECT_EQ(spy.runs(), (std::vector<std::string>{"-h config_directory", "-h -d config_directory"}));

    spy.failWhen("-h*config_directory", "postconf: fatal: second\n");
    EXPECT_EQ(runInChild(printInstance).out, "error: postconf: fatal: second\n\n");

    spy.failWhen("-h*config_directory", "", "0");
    EXPECT_EQ(runInChild(printInstance).out,
              "error: unable to determine Postfix config_directory parameter\n");

    // A failed construction is tried again on the next call.
    const ChildResult again = runInChild([&spy] {
        printInstance();
        spy.clear();
        return printInstance();
    });
    EXPECT_EQ(again.out, "error: unable to determine Postfix config_directory parameter\n"
                         "/etc/postfix/main.cf\n");
}

}  // namespace

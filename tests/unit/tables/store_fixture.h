// The table store's test fixture: the real postmap in the sandbox, with a logging spy over
// /usr/sbin/postmap that counts runs and injects failures.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <list>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/tool_spy.h"
#include "tables/database_helper.h"
#include "tables/record_filters.h"

namespace pf = quelt::mail::postfix;
namespace db = quelt::mail::postfix::database;
using Records = std::list<std::pair<std::string, std::string>>;
using Keys = std::list<std::string>;

inline const std::string kDir = "/var/spool/postfix/quelt/";
inline const std::string kVirtual = "hash:" + kDir + "virtual";
inline const std::string kMailbox = "hash:" + kDir + "vmailbox";

class Store : public ::testing::Test {
protected:
    static void SetUpTestSuite() { spy_ = new ToolSpy("/usr/sbin/postmap"); }
    static void TearDownTestSuite() { delete spy_; }

    void SetUp() override
    {
        for (const auto& entry : std::filesystem::directory_iterator(kDir))
            std::filesystem::remove(entry.path());
        spy_->clear();
    }

    // The table's records as the real postmap dumps them, "key<TAB>value" lines in byte order.
    static std::string dump(const std::string& table)
    {
        return shellOutput(spy_->real() + " -s " + table + " 2>&1 | LC_ALL=C sort");
    }

    static void seed(const std::string& table, const std::string& lines)
    {
        shellOutput("printf '" + lines + "' | " + spy_->real() + " -r -i " + table);
    }

    // Files beside the tables other than the tables themselves.
    static std::set<std::string> strays()
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(kDir)) {
            const std::string name = entry.path().filename().string();
            if (entry.path().extension() != ".db" || name[0] == '.')
                names.insert(name);
        }
        return names;
    }

    // The runs, with the random part of a rewrite's staging name as XXXXXX.
    static std::vector<std::string> runs()
    {
        std::vector<std::string> runs = spy_->runs();
        for (auto& run : runs)
            run = std::regex_replace(run, std::regex("\\.tmp\\.[A-Za-z0-9]{6}"), ".tmp.XXXXXX");
        return runs;
    }

    static inline ToolSpy* spy_ = nullptr;
};

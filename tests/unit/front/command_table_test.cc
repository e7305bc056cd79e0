// The command table against the help list: every row's words reach one handler and the table
// holds no word the help does not list (that rows reach their own handlers is the command-words
// scenario's); the legacy service words, which take no options and so show no help naming
// them, reach the functions their rows name.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "front/commands/service_commands.h"
#include "front/dispatch/dispatcher.h"
#include "front/dispatch/help.h"

namespace mc = quelt::mail::postfix::mailrig_commands;

namespace {

// "-p, --start-smtpd" holds two words.
std::vector<std::string> wordsOf(const char* command)
{
    std::vector<std::string> words;
    std::string text(command);
    for (std::string::size_type comma; (comma = text.find(", ")) != std::string::npos; text.erase(0, comma + 2))
        words.push_back(text.substr(0, comma));
    words.push_back(text);
    return words;
}

}  // namespace

TEST(CommandTable, EveryHelpRowHasOneHandlerAndNoWordIsUnlisted)
{
    const mc::CommandTable table = mc::buildCommandTable();
    std::size_t words = 0;
    for (const mc::CommandDescription& row : mc::commandDescriptions) {
        const std::vector<std::string> rowWords = wordsOf(row.command);
        const auto first = table.find(rowWords.front());
        ASSERT_NE(first, table.end()) << rowWords.front() << " is an invalid command";
        for (const std::string& word : rowWords) {
            const auto found = table.find(word);
            ASSERT_NE(found, table.end()) << word << " is an invalid command";
            EXPECT_EQ(found->second, first->second) << word << " and " << rowWords.front() << " differ";
        }
        words += rowWords.size();
    }
    EXPECT_EQ(table.size(), words) << "the table holds words the help does not list";
}

TEST(CommandTable, LegacyServiceWordsReachTheFunctionsTheirRowsName)
{
    const struct {
        const char* word;
        mc::CommandHandler handler;
    } legacy[] = {
        {"-p", mc::startSMTPD},         {"-o", mc::stopSMTPD},       {"-r", mc::restartSMTPD},
        {"-s", mc::statusMTA},          {"-l", mc::startMTA},        {"-m", mc::stopMTA},
        {"-i", mc::startIMAP},          {"-t", mc::stopIMAP},        {"-z", mc::restartIMAP},
        {"-e", mc::statusIMAP},         {"-a", mc::enableSubmission}, {"-b", mc::disableSubmission},
        {"--start-milter", mc::startMilter}, {"--stop-milter", mc::stopMilter},
        {"--restart-milter", mc::restartMilter}, {"--status-milter", mc::statusMilter},
    };
    const mc::CommandTable table = mc::buildCommandTable();
    for (const auto& entry : legacy) {
        const auto found = table.find(entry.word);
        ASSERT_NE(found, table.end()) << entry.word;
        EXPECT_EQ(found->second, entry.handler) << entry.word;
    }
}

// The command table against the help list: every row's words reach one handler and the table
// holds no word the help does not list (that rows reach their own handlers is the command-words
// scenario's, and what each legacy service word does the services scenario's).
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

// Reading .qmail files: what becomes an instruction and what refuses the whole file (the
// delivery scenario sends mail through the common refusals; these are the rarer inputs).
#include "delivery/instructions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dl = quelt::mail::delivery;

namespace {

// The instructions in file order, or why the file is refused.
std::string outcome(const std::string& file)
{
    try {
        std::string text;
        for (const auto& i : dl::parseInstructions(file))
            text += (i.kind == dl::InstructionKind::Program ? "run " : "forward ") + i.text + ";";
        return text;
    } catch (const dl::InstructionError& e) {
        return std::string("refused: ") + e.what();
    }
}

}  // namespace

TEST(Instructions, TheLinesMailrigWritesInFileOrderAndHostileFilesRefusedWithTheLine)
{
    const std::string notAnAddress = "refused: line 1: a forward line that is not one plain address";
    const struct {
        std::string file;
        std::string want;
    } cases[] = {
        {"| true\n", "run true;"},
        {"| true\n| /usr/bin/deliverquota ./Maildir\n", "run true;run /usr/bin/deliverquota ./Maildir;"},
        {"| true\n&info@example.com\n| /usr/bin/deliverquota ./Maildir\n",
         "run true;forward info@example.com;run /usr/bin/deliverquota ./Maildir;"},
        {"# note\n\n|true\n", "run true;"},
        {"|\t  exit 99\n", "run exit 99;"},
        {"&o'neil+x@xn--bcher-kva.example\n", "forward o'neil+x@xn--bcher-kva.example;"},
        {"| " + std::string(1022, 'x') + "\n", "run " + std::string(1022, 'x') + ";"},  // the longest
        {"&a@b@c.example\n", notAnAddress},
        {"&a@b.example\r\n", notAnAddress},
        {"&<a@b.example>\n", notAnAddress},
        {"&ab.example\n", notAnAddress},
        {"&-oQ/tmp@example.com\n", notAnAddress},  // an option for sendmail
        {"&\n", notAnAddress},
        {"|  \n", "refused: line 1: a program line without a command"},
        {"| true\n| " + std::string(1023, 'x') + "\n", "refused: line 2: longer than 1024 bytes"},
        {std::string("| tr\0ue\n", 8), "refused: the file holds a NUL byte"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(outcome(c.file), c.want) << c.file.substr(0, 80);
}

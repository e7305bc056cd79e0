// Reading .qmail files: what becomes an instruction and what refuses the whole file (the
// delivery scenario sends mail through the common refusals; these are the rarer inputs).
#include "delivery/instructions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dl = quelt::mail::delivery;

namespace {

std::string describe(const std::vector<dl::Instruction>& instructions)
{
    std::string text;
    for (const auto& i : instructions)
        text += (i.kind == dl::InstructionKind::Program ? "run " : "forward ") + i.text + ";";
    return text;
}

}  // namespace

TEST(Instructions, TheLinesMailrigWritesInFileOrder)
{
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
    };
    for (const auto& c : cases)
        EXPECT_EQ(describe(dl::parseInstructions(c.file)), c.want) << c.file;
}

TEST(Instructions, HostileFilesAreRefusedWithTheLine)
{
    const struct {
        std::string file;
        std::string why;
    } cases[] = {
        {"&a@b@c.example\n", "line 1: a forward line that is not one plain address"},
        {"&a@b.example\r\n", "line 1: a forward line that is not one plain address"},
        {"&<a@b.example>\n", "line 1: a forward line that is not one plain address"},
        {"&ab.example\n", "line 1: a forward line that is not one plain address"},
        {"&\n", "line 1: a forward line that is not one plain address"},
        {"|  \n", "line 1: a program line without a command"},
        {"| true\n| " + std::string(1023, 'x') + "\n", "line 2: longer than 1024 bytes"},
        {std::string("| tr\0ue\n", 8), "the file holds a NUL byte"},
    };
    for (const auto& c : cases) {
        try {
            dl::parseInstructions(c.file);
            ADD_FAILURE() << "accepted: " << c.file.substr(0, 80);
        } catch (const dl::InstructionError& e) {
            EXPECT_EQ(std::string(e.what()), c.why) << c.file.substr(0, 80);
        }
    }
}

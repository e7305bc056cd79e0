// The delivery instructions of a mailname's .qmail file, read with qmail-local's meaning for the
// kinds of line mailrig writes: "| command", "&address", and "#" comments.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace quelt::mail::delivery {

// A file or a line longer than this was not written by mailrig; refusing it keeps a hand-made
// mistake from running as a command or from being sent as an address.
constexpr std::size_t kMaxInstructionFile = 65536;
constexpr std::size_t kMaxInstructionLine = 1024;

enum class InstructionKind { Program, Forward };

struct Instruction {
    InstructionKind kind;
    std::string text;  // the command for /bin/sh -c, or the address to forward to
};

// A file that cannot be trusted: what() names the line and the reason.
class InstructionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The instructions of the file's `text`, in file order. Empty lines and comments are skipped;
// anything else that is not a program or a forward line, a line without its line end, a NUL
// byte, an over-long file or line, a forward line that is not one plain address, and a file with
// no instruction at all throw InstructionError.
std::vector<Instruction> parseInstructions(const std::string& text);

// True for one address local@domain of plain characters (no blank, comma, quote, bracket or
// control character, not starting with "-"): what may follow "&" and go to sendmail.
bool isPlainAddress(const std::string& address);

}  // namespace quelt::mail::delivery

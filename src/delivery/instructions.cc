// Reading a .qmail file into delivery instructions.
#include "delivery/instructions.h"

#include <algorithm>
#include <cctype>

namespace quelt::mail::delivery {

namespace {

bool isLocalChar(unsigned char c)
{
    return std::isalnum(c) || std::string("!#$%&'*+/=?^_`{|}~.-").find(static_cast<char>(c)) != std::string::npos;
}

bool isDomainChar(unsigned char c)
{
    return std::isalnum(c) || c == '.' || c == '-';
}

[[noreturn]] void refuse(std::size_t lineNo, const std::string& why)
{
    throw InstructionError("line " + std::to_string(lineNo) + ": " + why);
}

}  // namespace

bool isPlainAddress(const std::string& address)
{
    const std::size_t at = address.find('@');
    if (at == std::string::npos || at == 0 || at + 1 == address.size() || address.find('@', at + 1) != std::string::npos)
        return false;
    if (address[0] == '-' || address.size() > 254)
        return false;
    const auto local_end = address.begin() + static_cast<std::ptrdiff_t>(at);
    return std::all_of(address.begin(), local_end, [](char c) { return isLocalChar(static_cast<unsigned char>(c)); }) &&
           std::all_of(local_end + 1, address.end(), [](char c) { return isDomainChar(static_cast<unsigned char>(c)); });
}

std::vector<Instruction> parseInstructions(const std::string& text)
{
    if (text.size() > kMaxInstructionFile)
        throw InstructionError("the file is longer than " + std::to_string(kMaxInstructionFile) + " bytes");
    if (text.find('\0') != std::string::npos)
        throw InstructionError("the file holds a NUL byte");
    std::vector<Instruction> instructions;
    std::size_t lineNo = 0;
    for (std::size_t at = 0; at < text.size();) {
        ++lineNo;
        const std::size_t end = text.find('\n', at);
        // A last line without its end is what a writer leaves when it was cut short.
        if (end == std::string::npos)
            refuse(lineNo, "no line end (the file may be truncated)");
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (line.size() > kMaxInstructionLine)
            refuse(lineNo, "longer than " + std::to_string(kMaxInstructionLine) + " bytes");
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == '|') {
            const std::size_t start = line.find_first_not_of(" \t", 1);
            if (start == std::string::npos)
                refuse(lineNo, "a program line without a command");
            instructions.push_back({InstructionKind::Program, line.substr(start)});
        } else if (line[0] == '&') {
            const std::string address = line.substr(1);
            if (!isPlainAddress(address))
                refuse(lineNo, "a forward line that is not one plain address");
            instructions.push_back({InstructionKind::Forward, address});
        } else {
            refuse(lineNo, "neither a program nor a forward line");
        }
    }
    if (instructions.empty())
        throw InstructionError("no delivery instruction");
    return instructions;
}

}  // namespace quelt::mail::delivery

// Quoting of a text that becomes one word of a shell command line.
#include "runtime/sh_quote.h"

#include <array>

namespace quelt {

namespace {

enum class QuoteClass : unsigned char { Copy, Escape, Newline };

constexpr std::array<QuoteClass, 256> makeTable()
{
    std::array<QuoteClass, 256> table{};
    for (auto& c : table)
        c = QuoteClass::Copy;
    for (unsigned char c : std::string_view("\t \"#$&'()*;<>?[\\`|~"))
        table[c] = QuoteClass::Escape;
    table[static_cast<unsigned char>('\n')] = QuoteClass::Newline;
    return table;
}

constexpr std::array<QuoteClass, 256> kTable = makeTable();

}  // namespace

std::string sh_quote(const std::string& text)
{
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (char ch : text) {
        switch (kTable[static_cast<unsigned char>(ch)]) {
        case QuoteClass::Escape:
            out += '\\';
            out += ch;
            break;
        case QuoteClass::Newline:
            out += "'\n'";
            break;
        case QuoteClass::Copy:
            out += ch;
            break;
        }
    }
    return out;
}

}  // namespace quelt

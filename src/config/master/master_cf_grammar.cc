// The master.cf grammar. Columns are separated by blanks; a line that starts with a blank
// continues the entry above it, even across comment and empty lines, as Postfix reads it.
// Entries keep their exact text, and so does every other line, so that writing the file back
// changes only the entries the panel changed.
#include <iterator>
#include <memory>
#include <string>

#include <boost/spirit/include/classic_chset.hpp>
#include <boost/spirit/include/classic_core.hpp>
#include <boost/spirit/include/classic_file_iterator.hpp>

#include "config/master/master_cf_file.h"
#include "config/master/master_cf_grammar.h"

namespace quelt::mail::postfix {

namespace sp = boost::spirit::classic;

template <class It>
std::unique_ptr<MasterCfContent> parseMasterCfRange(It first, It last)
{
    using Rule = sp::rule<sp::scanner<It>>;
    auto content = std::make_unique<MasterCfContent>();
    ModuleInfo info;

    const auto flag = [](boost::tribool& field) {
        return sp::ch_p('y')[([&field](char) { field = true; })] |
               sp::ch_p('n')[([&field](char) { field = false; })] |
               sp::ch_p('-')[([&field](char) { field = boost::indeterminate; })];
    };
    const auto type = [&info](const char* word, ModuleType value) {
        return sp::str_p(word)[([&info, value](It, It) { info.type = value; })];
    };

    Rule blank, eol, emptyLine, commentLine, continuation, separator, service, word, entry, line,
        file;
    blank = sp::chset_p(" \t\r");
    eol = sp::ch_p('\n');
    emptyLine = *blank;
    commentLine = *blank >> '#' >> *(sp::anychar_p - '\n' - '\0');
    continuation = eol >> *((commentLine | emptyLine) >> eol) >> +blank;
    separator = (+blank >> *continuation) | +continuation;
    service = +(sp::range_p('a', 'z') | sp::range_p('0', '9') | sp::chset_p("_:.") | '-');
    word = +(sp::range_p('a', 'z') | sp::range_p('A', 'Z') | sp::range_p('0', '9') |
             sp::chset_p("/!@$%^&*()_=+|[]{}:;'\"<>.,?~`") | '-' | '\\');

    entry =
        sp::eps_p[([&info](It, It) { info = ModuleInfo(); })] >>
        service[([&info](It a, It b) { info.name.assign(a, b); })] >> separator >>
        // unix-dgram before unix: an alternative that matched is never retried.
        (type("inet", inet) | type("unix-dgram", unix_dgram) | type("unix", unix) |
         type("fifo", fifo) | type("pass", pass)) >>
        separator >> flag(info.priv) >> separator >> flag(info.unpriv) >> separator >>
        flag(info.chroot) >> separator >>
        (sp::ch_p('-')[([&info](char) { info.wakeup = -1; })] |
         (sp::uint_parser<int>()[([&info](int n) { info.wakeup = n; })] >>
          !sp::ch_p('?')[([&info](char) { info.wakeupOnDemand = true; })])) >>
        separator >>
        (sp::ch_p('-')[([&info](char) { info.maxproc = -1; })] |
         sp::uint_parser<int>()[([&info](int n) { info.maxproc = n; })]) >>
        *(separator >> word[([&info](It a, It b) { info.command.emplace_back(a, b); })]);

    // Blanks after the last word stay with the entry's text.
    line = commentLine[([&content](It a, It b) { content->appendText(std::string(a, b)); })] |
           (entry >> *blank)[([&](It a, It b) { content->appendEntry(info, std::string(a, b)); })] |
           emptyLine[([&content](It a, It b) { content->appendText(std::string(a, b)); })];
    file = line >> *(eol >> line);

    if (!sp::parse(first, last, file).full)
        return nullptr;
    content->finishParsing(first == last || *std::prev(last) == '\n');
    return content;
}

std::unique_ptr<MasterCfContent> parseMasterCf(const char* text, std::size_t size)
{
    return parseMasterCfRange(text, text + size);
}

std::unique_ptr<MasterCfContent> parseMappedMasterCf(const std::string& path, bool& opened)
{
    sp::file_iterator<char> first(path);
    opened = static_cast<bool>(first);
    if (!opened)
        return nullptr;
    return parseMasterCfRange(first, first.make_end());
}

}  // namespace quelt::mail::postfix

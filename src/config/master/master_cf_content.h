// One master.cf-format file in memory: its logical lines in file order, and the service entries
// among them by key. Lines that are not entries are kept as they were read.
#pragma once

#include <list>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "config/master/module_info.h"

namespace quelt::mail::postfix {

// Not copyable: the index points into the list of lines.
class MasterCfContent {
public:
    MasterCfContent() = default;
    MasterCfContent(const MasterCfContent&) = delete;
    MasterCfContent& operator=(const MasterCfContent&) = delete;

    bool hasModule(const std::string& name, ModuleType type) const;
    // The entry and the text of its line; std::out_of_range "no such module <name>" when absent.
    std::pair<ModuleInfo, std::string> getModule(const std::string& name, ModuleType type) const;
    // A new key appends `line` at the end; a known key has its line replaced in place.
    void addModule(const ModuleInfo& info, const std::string& line);
    // Drops the entry and its line; false when there was none.
    bool removeModule(const std::string& name, ModuleType type);
    // Every entry, in key order (name, then type).
    std::vector<ModuleInfo> modules() const;

    // Parsing, in file order: a comment or empty line; an entry (a second entry of the same key
    // takes the key over, the first one's text stays as an unowned line); then, at the end,
    // whether the file ended with a line end: the text after it is no line of its own;
    // without one, writing leaves the last line unterminated as long as it stays last.
    void appendText(const std::string& text);
    void appendEntry(const ModuleInfo& info, const std::string& text);
    void finishParsing(bool lineEndAtEnd);

    // The file's bytes: every line followed by a line end.
    void write(std::ostream& out) const;

    const std::list<std::string>& lines() const { return lines_; }

private:
    using LinePos = std::list<std::string>::iterator;

    std::list<std::string> lines_;
    std::map<ModuleKey, ModuleInfo> modules_;
    std::map<ModuleKey, LinePos> index_;
    LinePos unterminated_ = lines_.end();
};

}  // namespace quelt::mail::postfix

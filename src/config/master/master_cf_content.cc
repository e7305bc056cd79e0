// One master.cf-format file in memory.
#include "config/master/master_cf_content.h"

#include <stdexcept>

namespace quelt::mail::postfix {

bool MasterCfContent::hasModule(const std::string& name, ModuleType type) const
{
    return modules_.count({name, type}) > 0;
}

std::pair<ModuleInfo, std::string> MasterCfContent::getModule(const std::string& name,
                                                              ModuleType type) const
{
    const auto it = modules_.find({name, type});
    if (it == modules_.end())
        throw std::out_of_range("no such module " + name);
    return {it->second, *index_.at(it->first)};
}

void MasterCfContent::addModule(const ModuleInfo& info, const std::string& line)
{
    const ModuleKey key = keyOf(info);
    const auto at = index_.find(key);
    if (at == index_.end())
        index_.emplace(key, lines_.insert(lines_.end(), line));
    else
        *at->second = line;
    modules_[key] = info;
}

bool MasterCfContent::removeModule(const std::string& name, ModuleType type)
{
    const auto at = index_.find({name, type});
    if (at == index_.end())
        return false;
    if (at->second == unterminated_)
        unterminated_ = lines_.end();
    lines_.erase(at->second);
    index_.erase(at);
    modules_.erase({name, type});
    return true;
}

std::vector<ModuleInfo> MasterCfContent::modules() const
{
    std::vector<ModuleInfo> all;
    all.reserve(modules_.size());
    for (const auto& entry : modules_)
        all.push_back(entry.second);
    return all;
}

void MasterCfContent::appendText(const std::string& text)
{
    lines_.push_back(text);
}

void MasterCfContent::appendEntry(const ModuleInfo& info, const std::string& text)
{
    const ModuleKey key = keyOf(info);
    index_[key] = lines_.insert(lines_.end(), text);
    modules_[key] = info;
}

void MasterCfContent::finishParsing(bool lineEndAtEnd)
{
    if (lines_.empty())
        return;
    if (lineEndAtEnd)
        lines_.pop_back();
    else
        unterminated_ = std::prev(lines_.end());
}

void MasterCfContent::write(std::ostream& out) const
{
    for (auto it = lines_.begin(); it != lines_.end(); ++it) {
        out << *it;
        // A hand-edited file may end without a line end; anything appended after it needs one.
        if (it != unterminated_ || std::next(it) != lines_.end())
            out << '\n';
    }
    out.flush();
}

}  // namespace quelt::mail::postfix

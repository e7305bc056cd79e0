// Postfix's main.cf, read through `postconf -h` and written through `postconf -e` only.
#pragma once

#include <list>
#include <string>

namespace quelt::mail::postfix {

// One per process, built on first use; its only state is the path of main.cf, which keys the
// lock that serialises writes. Every operation throws PostfixConfigurationError with
// postconf's diagnostics ("unknown error" when it printed none) when postconf fails.
class MainCfManager {
public:
    // The shared instance. Construction asks postconf for config_directory (falling back to
    // Postfix's default) and throws PostfixConfigurationError when it stays unknown; the next
    // call then tries again.
    static MainCfManager& getInstance();

    // The parameter as Postfix reports it, trimmed; with `defaults`, Postfix's built-in value.
    // An unknown parameter is the empty string.
    std::string getStringValue(const std::string& name, bool defaults) const;

    // Sets "name=value" with one `postconf -e` run under the main.cf lock.
    void replaceStringValue(const std::string& name, const std::string& value) const;

    // The value split at every space, tab and comma; consecutive separators give empty items.
    void getList(const std::string& name, std::list<std::string>& out) const;

    // Writes the items joined with ", ".
    void setList(const std::string& name, const std::list<std::string>& items) const;

    // Adds one item to a list value unless present; a present item leaves main.cf alone,
    // except that mynetworks is then written back unchanged, making an inherited default
    // explicit.
    void appendStringValue(const std::string& name, const std::string& item) const;

    // Removes every occurrence of the item (and empty items with it); runs no write when the
    // item is absent.
    void removeListElement(const std::string& name, const std::string& item) const;

    // Rebuilds a list value: `filter(currentValue, items)` fills the new items, which are
    // written back joined with ", ".
    template <class Filter>
    void filterStringValues(const std::string& name, Filter& filter) const
    {
        std::list<std::string> items;
        filter(getStringValue(name, false), items);
        setList(name, items);
    }

    const std::string& mainCfPath() const { return mainCfPath_; }

private:
    MainCfManager();
    MainCfManager(const MainCfManager&) = delete;
    MainCfManager& operator=(const MainCfManager&) = delete;

    std::string mainCfPath_;
};

}  // namespace quelt::mail::postfix

// master.cf and its companion master.cf.disabled, where the services the panel switched off
// wait with their exact text until they are switched on again.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/logic/tribool.hpp>

#include "config/master/master_cf_content.h"
#include "config/master/module_info.h"

namespace quelt::mail::postfix {

class ModuleManager {
public:
    // The shared instance: master.cf in Postfix's config_directory. Construction throws
    // PostfixConfigurationError "unable to determine Postfix config_directory parameter" when
    // postconf reports none.
    static ModuleManager& getInstance();

    // A manager of the given pair of files (getInstance uses the server's own).
    ModuleManager(std::string masterPath, std::string disabledPath);
    ModuleManager(const ModuleManager&) = delete;
    ModuleManager& operator=(const ModuleManager&) = delete;

    // Loads master.cf, and master.cf.disabled when it exists; loaded contents stay unless
    // `force`. Throws PostfixConfigurationError "unable to open/parse <path>".
    void loadModules(bool force);
    // Writes each changed file (every loaded one with `force`); true when master.cf was written.
    bool storeModules(bool force);

    // Every operation below throws std::logic_error "modules configuration isn't loaded yet"
    // before loadModules. `enabled`: true searches master.cf, false master.cf.disabled,
    // indeterminate both, master.cf first.
    bool hasModule(const std::string& name, ModuleType type, boost::tribool enabled) const;
    // The entry and its line text; std::out_of_range "no such module <name>" when not found.
    std::pair<ModuleInfo, std::string> getModule(const std::string& name, ModuleType type,
                                                 boost::tribool enabled) const;
    // Every entry of master.cf, in key order (name, then type).
    std::vector<ModuleInfo> modules() const;
    // Writes the entry as a new line into one file and drops a same-key entry from the other.
    void addModule(const ModuleInfo& info, bool enabled);
    // Drops the entry from both files.
    void removeModule(const std::string& name, ModuleType type);
    // Moves the entry's exact text from master.cf to the end of master.cf.disabled; false (and
    // nothing changed) when master.cf has no such entry.
    bool disableModule(const std::string& name, ModuleType type);
    // The reverse move, appending to master.cf; false when the entry is not disabled.
    bool enableModule(const std::string& name, ModuleType type);

    const std::string& masterPath() const { return masterPath_; }
    const std::string& disabledPath() const { return disabledPath_; }

private:
    void checkLoaded() const;
    MasterCfContent& disabledContent();
    // Moves the entry from `from` into `to`; false when `from` lacks it.
    bool move(MasterCfContent& from, MasterCfContent& to, const std::string& name, ModuleType type);

    std::unique_ptr<MasterCfContent> master_;
    std::unique_ptr<MasterCfContent> disabled_;
    bool masterChanged_ = false;
    bool disabledChanged_ = false;
    std::string masterPath_;
    std::string disabledPath_;
};

}  // namespace quelt::mail::postfix

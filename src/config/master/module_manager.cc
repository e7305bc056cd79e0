// master.cf and master.cf.disabled.
#include "config/master/module_manager.h"

#include <sys/stat.h>

#include <stdexcept>

#include "config/maincf/main_cf_manager.h"
#include "config/master/master_cf_file.h"
#include "runtime/errors.h"

namespace quelt::mail::postfix {

namespace {

constexpr const char* kDisabledPath = "/var/spool/postfix/quelt/master.cf.disabled";

std::string masterCfPath()
{
    const std::string dir = MainCfManager::getInstance().getStringValue("config_directory", false);
    if (dir.empty())
        throw PostfixConfigurationError("unable to determine Postfix config_directory parameter");
    return dir + "/master.cf";
}

bool exists(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

ModuleManager& ModuleManager::getInstance()
{
    static ModuleManager instance(masterCfPath(), kDisabledPath);
    return instance;
}

ModuleManager::ModuleManager(std::string masterPath, std::string disabledPath)
    : masterPath_(std::move(masterPath)), disabledPath_(std::move(disabledPath))
{
}

void ModuleManager::loadModules(bool force)
{
    if (master_ && !force)
        return;
    loadMasterCf(masterPath_, master_);
    if (exists(disabledPath_))
        loadMasterCf(disabledPath_, disabled_);
    else
        disabled_.reset();
    masterChanged_ = disabledChanged_ = false;
}

bool ModuleManager::storeModules(bool force)
{
    checkLoaded();
    const bool writeMaster = masterChanged_ || force;
    if (writeMaster) {
        storeMasterCf(masterPath_, *master_);
        masterChanged_ = false;
    }
    if (disabled_ && (disabledChanged_ || force)) {
        storeMasterCf(disabledPath_, *disabled_);
        disabledChanged_ = false;
    }
    return writeMaster;
}

bool ModuleManager::hasModule(const std::string& name, ModuleType type, boost::tribool enabled) const
{
    checkLoaded();
    if (enabled)
        return master_->hasModule(name, type);
    if (!enabled)
        return disabled_ && disabled_->hasModule(name, type);
    return master_->hasModule(name, type) || (disabled_ && disabled_->hasModule(name, type));
}

std::pair<ModuleInfo, std::string> ModuleManager::getModule(const std::string& name, ModuleType type,
                                                            boost::tribool enabled) const
{
    checkLoaded();
    if (!enabled || (boost::indeterminate(enabled) && !master_->hasModule(name, type))) {
        if (!disabled_)
            throw std::out_of_range("no such module " + name);
        return disabled_->getModule(name, type);
    }
    return master_->getModule(name, type);
}

std::vector<ModuleInfo> ModuleManager::modules() const
{
    checkLoaded();
    return master_->modules();
}

void ModuleManager::addModule(const ModuleInfo& info, bool enabled)
{
    checkLoaded();
    const std::string line = formatModuleLine(info);
    if (enabled) {
        master_->addModule(info, line);
        masterChanged_ = true;
        if (disabled_ && disabled_->removeModule(info.name, info.type))
            disabledChanged_ = true;
    } else {
        disabledContent().addModule(info, line);
        disabledChanged_ = true;
        if (master_->removeModule(info.name, info.type))
            masterChanged_ = true;
    }
}

void ModuleManager::removeModule(const std::string& name, ModuleType type)
{
    checkLoaded();
    if (master_->removeModule(name, type))
        masterChanged_ = true;
    if (disabled_ && disabled_->removeModule(name, type))
        disabledChanged_ = true;
}

bool ModuleManager::disableModule(const std::string& name, ModuleType type)
{
    checkLoaded();
    if (!master_->hasModule(name, type))
        return false;
    return move(*master_, disabledContent(), name, type);
}

bool ModuleManager::enableModule(const std::string& name, ModuleType type)
{
    checkLoaded();
    if (!disabled_)
        return false;
    return move(*disabled_, *master_, name, type);
}

bool ModuleManager::move(MasterCfContent& from, MasterCfContent& to, const std::string& name,
                         ModuleType type)
{
    if (!from.hasModule(name, type))
        return false;
    const auto [info, line] = from.getModule(name, type);
    to.addModule(info, line);
    from.removeModule(name, type);
    masterChanged_ = disabledChanged_ = true;
    return true;
}

void ModuleManager::checkLoaded() const
{
    if (!master_)
        throw std::logic_error("modules configuration isn't loaded yet");
}

MasterCfContent& ModuleManager::disabledContent()
{
    if (!disabled_)
        disabled_ = std::make_unique<MasterCfContent>();
    return *disabled_;
}

}  // namespace quelt::mail::postfix

// Postfix's main.cf, read through `postconf -h` and written through `postconf -e` only.
#include "config/maincf/main_cf_manager.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/trim.hpp>

#include "config/maincf/check_output.h"
#include "config/maincf/postfix_tool.h"
#include "runtime/errors.h"
#include "services/process/mk_lock.h"

namespace quelt::mail::postfix {

namespace {

const char kPostconf[] = "/usr/sbin/postconf";

bool isItemSep(char c) { return c == ' ' || c == '\t' || c == ','; }

// Every separator ends an item, so consecutive separators give empty items.
void splitItems(const std::string& value, std::list<std::string>& out)
{
    std::string::size_type begin = 0;
    for (std::string::size_type at = 0; at < value.size(); ++at) {
        if (isItemSep(value[at])) {
            out.push_back(value.substr(begin, at - begin));
            begin = at + 1;
        }
    }
    out.push_back(value.substr(begin));
}

std::string readValue(const std::string& name, bool defaults)
{
    std::vector<std::string> args{kPostconf, "-h"};
    if (defaults)
        args.push_back("-d");
    args.push_back(name);

    std::string value, diagnostics;
    const process::Receiver collect = process::makeStringReceiver(value);
    const int status = runTool(args, diagnostics, nullptr, &collect);
    if (!succeeded(status))
        throw PostfixConfigurationError(failureText(diagnostics));
    // An empty value with clean diagnostics is a legitimate empty value.
    if (value.empty() && !checkOutput(diagnostics, false))
        throw PostfixConfigurationError(diagnostics);
    boost::algorithm::trim(value);
    return value;
}

std::string configDirectory()
{
    try {
        return readValue("config_directory", false);
    } catch (const PostfixConfigurationError&) {
        return readValue("config_directory", true);
    }
}

}  // namespace

MainCfManager::MainCfManager()
{
    const std::string directory = configDirectory();
    if (directory.empty())
        throw PostfixConfigurationError("unable to determine Postfix config_directory parameter");
    mainCfPath_ = directory + "/main.cf";
}

MainCfManager& MainCfManager::getInstance()
{
    // A throwing constructor leaves the static uninitialised; the next call tries again.
    static MainCfManager instance;
    return instance;
}

std::string MainCfManager::getStringValue(const std::string& name, bool defaults) const
{
    return readValue(name, defaults);
}

void MainCfManager::replaceStringValue(const std::string& name, const std::string& value) const
{
    const std::vector<std::string> args{kPostconf, "-e", name + "=" + value};
    std::string diagnostics;
    int status;
    {
        MKLock lock(mainCfPath_, MKLock::ByKey, MKLock::Wait);
        status = runTool(args, diagnostics);
    }
    if (!succeeded(status))
        throw PostfixConfigurationError(failureText(diagnostics));
}

void MainCfManager::getList(const std::string& name, std::list<std::string>& out) const
{
    splitItems(getStringValue(name, false), out);
}

void MainCfManager::setList(const std::string& name, const std::list<std::string>& items) const
{
    replaceStringValue(name, boost::algorithm::join(items, ", "));
}

void MainCfManager::appendStringValue(const std::string& name, const std::string& item) const
{
    const std::string current = getStringValue(name, false);
    std::list<std::string> items;
    splitItems(current, items);
    for (const std::string& present : items) {
        if (present != item)
            continue;
        // Writing mynetworks back turns an inherited default into an explicit setting.
        if (name == "mynetworks")
            replaceStringValue(name, current);
        return;
    }
    replaceStringValue(name, current.empty() ? item : current + ", " + item);
}

void MainCfManager::removeListElement(const std::string& name, const std::string& item) const
{
    std::list<std::string> items;
    getList(name, items);
    std::list<std::string> kept;
    bool found = false;
    for (const std::string& present : items) {
        if (present == item)
            found = true;
        else if (!present.empty())
            kept.push_back(present);
    }
    if (found)
        setList(name, kept);
}

}  // namespace quelt::mail::postfix

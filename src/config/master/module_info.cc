// Formatting of the entries the panel writes into master.cf.
#include "config/master/module_info.h"

namespace quelt::mail::postfix {

namespace {

char flagChar(boost::tribool flag)
{
    if (flag)
        return 'y';
    if (!flag)
        return 'n';
    return '-';
}

std::string countText(int value)
{
    return value == -1 ? std::string("-") : std::to_string(value);
}

}  // namespace

const char* moduleTypeName(ModuleType type)
{
    switch (type) {
    case inet: return "inet";
    case unix: return "unix";
    case fifo: return "fifo";
    case unix_dgram: return "unix-dgram";
    case pass: return "pass";
    }
    return "inet";
}

std::string formatModuleLine(const ModuleInfo& info)
{
    std::string line = info.name;
    line += ' ';
    line += moduleTypeName(info.type);
    for (boost::tribool flag : {info.priv, info.unpriv, info.chroot}) {
        line += ' ';
        line += flagChar(flag);
    }
    line += ' ';
    line += countText(info.wakeup);
    if (info.wakeup != -1 && info.wakeupOnDemand)
        line += '?';
    line += ' ';
    line += countText(info.maxproc);
    for (const std::string& word : info.command) {
        line += ' ';
        line += word;
    }
    return line;
}

}  // namespace quelt::mail::postfix

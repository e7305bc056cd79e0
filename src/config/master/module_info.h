// One service entry of master.cf: its key (name and type), its columns and its command.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <boost/logic/tribool.hpp>

namespace quelt::mail::postfix {

// The first three are the types the panel itself writes; Postfix's `unix-dgram` (postlogd)
// and `pass` (postscreen) entries are read and kept so that stock files stay usable.
enum ModuleType { inet = 0, unix = 1, fifo = 2, unix_dgram = 3, pass = 4 };

// "inet", "unix", "fifo", "unix-dgram", "pass".
const char* moduleTypeName(ModuleType type);

struct ModuleInfo {
    std::string name;
    ModuleType type = inet;
    boost::tribool priv = boost::indeterminate;
    boost::tribool unpriv = boost::indeterminate;
    boost::tribool chroot = false;
    int wakeup = -1;
    bool wakeupOnDemand = false;
    int maxproc = -1;
    std::vector<std::string> command;
};

using ModuleKey = std::pair<std::string, ModuleType>;

inline ModuleKey keyOf(const ModuleInfo& info)
{
    return {info.name, info.type};
}

// The entry as the panel writes it: the columns and the command words, each after one space
// ("submission inet n - - - - smtpd -o smtpd_sasl_auth_enable=yes").
std::string formatModuleLine(const ModuleInfo& info);

}  // namespace quelt::mail::postfix

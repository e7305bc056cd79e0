// Small lookups and printers of the procedural modules.
#include "runtime/proc_info.h"

#include <dirent.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "runtime/log.h"

namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

bool isNumber(const char* text)
{
    if (!*text)
        return false;
    for (; *text; ++text)
        if (*text < '0' || *text > '9')
            return false;
    return true;
}

// "pid (name) state ppid ..." of /proc/<pid>/stat; the name may hold blanks and parentheses,
// so it runs up to the last ')'. False when the process went away meanwhile.
bool readStat(const char* pid, ProcessEntry& entry)
{
    std::ifstream in(std::string("/proc/") + pid + "/stat");
    std::string text;
    if (!std::getline(in, text))
        return false;
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open)
        return false;
    std::istringstream rest(text.substr(close + 1));
    char state;
    long ppid;
    if (!(rest >> state >> ppid))
        return false;
    entry.pid = static_cast<pid_t>(std::atol(pid));
    entry.ppid = static_cast<pid_t>(ppid);
    entry.name = text.substr(open + 1, close - open - 1);
    return true;
}

}  // namespace

int for_each_process(const std::function<int(const ProcessEntry&)>& visitor)
{
    std::unique_ptr<DIR, DirCloser> proc(::opendir("/proc"));
    if (!proc) {
        quelt_log(3, "unable to open /proc filesystem: %s\n", std::strerror(errno));
        return -1;
    }
    int result = 1;
    ProcessEntry entry;
    while (const struct dirent* dirEntry = ::readdir(proc.get())) {
        if (!isNumber(dirEntry->d_name) || !readStat(dirEntry->d_name, entry))
            continue;
        result = visitor(entry);
        if (result == 0)
            break;
    }
    return result;
}

pid_t findProcessByPath(const std::string& path)
{
    std::unique_ptr<DIR, DirCloser> proc(::opendir("/proc"));
    if (!proc) {
        quelt_log(3, "unable to open /proc filesystem: %s\n", std::strerror(errno));
        return -1;
    }
    char target[PATH_MAX];
    while (const struct dirent* entry = ::readdir(proc.get())) {
        if (!isNumber(entry->d_name))
            continue;
        const std::string link = std::string("/proc/") + entry->d_name + "/exe";
        const ssize_t n = ::readlink(link.c_str(), target, sizeof target);
        if (n <= 0 || static_cast<std::size_t>(n) >= sizeof target)
            continue;
        if (path.compare(0, std::string::npos, target, static_cast<std::size_t>(n)) == 0)
            return static_cast<pid_t>(std::atol(entry->d_name));
    }
    return -1;
}

int print_feature(const std::string& name, const std::string& value)
{
    const bool boolean = value == "true" || value == "false";
    const int n = boolean ? std::printf("$features['%s'] = %s;\n", name.c_str(), value.c_str())
                          : std::printf("$features['%s'] = \"%s\";\n", name.c_str(), value.c_str());
    return n < 0 ? -1 : 0;
}

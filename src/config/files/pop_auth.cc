// POP-before-SMTP outside main.cf: the milter's switch and the root crontab entry.
#include "config/files/pop_auth.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

#include "runtime/errors.h"
#include "runtime/line_file.h"
#include "runtime/log.h"
#include "services/process/exec_cmd.h"

namespace {

constexpr const char* kMilterConfig = "/etc/sysconfig/zvt-pc-remote";
constexpr const char* kPopSwitch = "pc_milter_pop_before_smtp";
constexpr const char* kCleaner = "/usr/lib/quelt-9.0/postfix-poplockdb-clean";
constexpr const char* kCronUser = "root";

bool exists(const char* path)
{
    struct stat info;
    return ::stat(path, &info) == 0;
}

// A pseudo-random integer in [0, period).
int range_rand(int period)
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    return static_cast<int>(static_cast<long long>(period) * std::rand() / 2147483648LL);
}

// "m1,m2,...\t*\t*\t*\t*\t<cleaner>": every `period` minutes of the hour from a random start.
std::string cleanerEntry(int minutes)
{
    const int period = minutes < 60 ? minutes : 60;
    std::string list;
    for (int minute = range_rand(period); minute < 60; minute += period) {
        if (!list.empty())
            list += ',';
        list += std::to_string(minute);
    }
    return list + "\t*\t*\t*\t*\t" + kCleaner;
}

bool isActiveCleanerLine(const std::string& line)
{
    const std::string::size_type first = line.find_first_not_of(" \t");
    if (first != std::string::npos && line[first] == '#')
        return false;
    return line.find(kCleaner) != std::string::npos;
}

// Root's crontab with the cleaner line replaced by `entry` (dropped when empty).
std::string withCleaner(const std::string& crontab, const std::string& entry)
{
    std::string result;
    bool met = false;
    std::string::size_type begin = 0;
    while (begin < crontab.size()) {
        std::string::size_type end = crontab.find('\n', begin);
        if (end == std::string::npos)
            end = crontab.size();
        const std::string line = crontab.substr(begin, end - begin);
        begin = end + 1;
        if (!isActiveCleanerLine(line)) {
            result += line + '\n';
        } else if (!met) {
            met = true;
            if (!entry.empty())
                result += entry + '\n';
        }
    }
    if (!met && !entry.empty())
        result += entry + '\n';
    return result;
}

}  // namespace

int enablePopAuth()
{
    if (exists(kMilterConfig) && file_str(kMilterConfig, kPopSwitch, FILE_STR_REMOVE_MATCHING, FILE_STR_PREFIX) != 0)
        return 1;
    return file_str(kMilterConfig, std::string(kPopSwitch) + "=1", FILE_STR_ADD, FILE_STR_BACK);
}

int disablePopAuth()
{
    if (!exists(kMilterConfig))
        return 0;
    return file_str(kMilterConfig, kPopSwitch, FILE_STR_REMOVE_MATCHING, FILE_STR_PREFIX);
}

int set_poplockdb_clean_period(int minutes)
{
    const std::string entry = minutes < 1 ? std::string() : cleanerEntry(minutes);

    quelt::ExecCmd list("crontab");
    list << "-l" << "-u" << kCronUser;
    const std::string listLine = std::string("crontab -l -u ") + kCronUser;
    try {
        // A user without a crontab is the one failure that means "empty"; any other would have
        // us replace a crontab we could not read.
        if (list.execCmdLine() != 0 && list.getStderr().find("no crontab for") == std::string::npos) {
            quelt_log(3, "Unable to execute: %s\n", listLine.c_str());
            return -1;
        }
    } catch (const quelt::SystemError&) {
        quelt_log(3, "Unable to execute: %s\n", listLine.c_str());
        return -1;
    }

    quelt::ExecCmd install("crontab");
    install << "-u" << kCronUser << "-";
    install.setStdin(withCleaner(list.getReturnCode() == 0 ? list.getStdout() : std::string(), entry));
    try {
        if (install.execCmdLine() != 0) {
            quelt_log(3, "Failed to set new crontab for user '%s'\n", kCronUser);
            return -1;
        }
    } catch (const quelt::SystemError&) {
        quelt_log(3, "Unable to execute: crontab -u %s -\n", kCronUser);
        return -1;
    }
    return 0;
}

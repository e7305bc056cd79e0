// Puts a logging stand-in over a Postfix tool inside the sandbox (a bind mount over the real
// path): every run's arguments are logged, and a run whose arguments match a pattern can be
// made to fail with a given text and exit code (or be killed) before the real tool runs.
#pragma once

#include <signal.h>
#include <sys/mount.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/io.h"

// Postfix's tools wait (in 300 ms steps, up to about two seconds) while main.cf looks freshly
// written; tests that just wrote it move its time a minute back instead of waiting.
inline void ageMainCf()
{
    const auto now = std::filesystem::file_time_type::clock::now();
    std::error_code ignored;
    std::filesystem::last_write_time("/etc/postfix/main.cf", now - std::chrono::minutes(1), ignored);
}

class ToolSpy {
public:
    // `tool` is the path of the real program, e.g. /usr/sbin/postmap.
    explicit ToolSpy(const std::string& tool)
        : tool_(tool), dir_("/tmp/spy-" + std::filesystem::path(tool).filename().string())
    {
        std::filesystem::create_directories(dir_);
        std::filesystem::copy_file(tool_, real(), std::filesystem::copy_options::overwrite_existing);
        std::ofstream(dir_ + "/spy") <<
            "#!/bin/bash\n"
            "dir=" << dir_ << "\n"
            "printf '%s\\n' \"$*\" >> $dir/log\n"
            // No pipe or command substitution here: either would open descriptors of our own.
            "if [ -f $dir/fds-wanted ]; then ls /proc/$$/fd >> $dir/fds; echo -- >> $dir/fds; fi\n"
            "fail() {\n"
            // Read what we are fed, as the real tool would, so the feeder sees no broken pipe.
            "  case \" $* \" in *' -i '*|*' -d - '*) cat > /dev/null ;; esac\n"
            "  cat $dir/fail-text >&2\n"
            "  code=$(cat $dir/fail-code)\n"
            "  [ \"$code\" = KILL ] && kill -KILL $$\n"
            "  exit $code\n"
            "}\n"
            "if [ -f $dir/fail-match ]; then\n"
            "  pattern=$(cat $dir/fail-match)\n"
            "  case \"$*\" in $pattern) fail \"$@\" ;; esac\n"
            "fi\n"
            "exec -a \"$0\" $dir/real \"$@\"\n";
        std::filesystem::permissions(dir_ + "/spy", std::filesystem::perms::owner_all);
        if (::mount((dir_ + "/spy").c_str(), tool_.c_str(), nullptr, MS_BIND, nullptr) != 0)
            throw std::runtime_error("cannot bind-mount the spy over " + tool_);
        clear();
        ageMainCf();
    }
    ~ToolSpy() { ::umount(tool_.c_str()); }
    ToolSpy(const ToolSpy&) = delete;
    ToolSpy& operator=(const ToolSpy&) = delete;

    // The real program, for looking at results without being logged.
    std::string real() const { return dir_ + "/real"; }

    // Forgets the logged runs and any planned failure.
    void clear()
    {
        std::filesystem::remove(dir_ + "/log");
        std::filesystem::remove(dir_ + "/fail-match");
        std::filesystem::remove(dir_ + "/fds-wanted");
        std::filesystem::remove(dir_ + "/fds");
    }

    // From now until clear(), every run records the descriptors its shell has open.
    void logDescriptors() { std::ofstream(dir_ + "/fds-wanted") << "yes"; }

    // Per run since logDescriptors(), the open descriptor numbers as `ls` orders them, joined
    // by blanks (the real tool inherits them, except the script's own, 255, close-on-exec).
    std::vector<std::string> descriptors() const
    {
        std::vector<std::string> runs(1);
        std::ifstream log(dir_ + "/fds");
        for (std::string line; std::getline(log, line);) {
            if (line == "--")
                runs.emplace_back();
            else
                runs.back() += (runs.back().empty() ? "" : " ") + line;
        }
        runs.pop_back();
        return runs;
    }

    // The next runs whose space-joined arguments match the shell glob print `text` on standard
    // error and exit with `code` ("KILL": die by SIGKILL).
    void failWhen(const std::string& glob, const std::string& text, const std::string& code = "1")
    {
        std::ofstream(dir_ + "/fail-text") << text;
        std::ofstream(dir_ + "/fail-code") << code;
        std::ofstream(dir_ + "/fail-match") << glob;
    }

    // The space-joined arguments of every run since the last clear(), in order.
    std::vector<std::string> runs() const
    {
        std::vector<std::string> lines;
        std::ifstream log(dir_ + "/log");
        for (std::string line; std::getline(log, line);)
            lines.push_back(line);
        return lines;
    }

private:
    std::string tool_;
    std::string dir_;
};

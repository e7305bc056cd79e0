// Small lookups and printers of the procedural modules: running processes, feature lines.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

// The pid of the first process in /proc whose executable is exactly `path`; -1 when none is,
// or when /proc cannot be read (logged through quelt_log).
pid_t findProcessByPath(const std::string& path);

// One running process as /proc shows it; `name` is the kernel's command name (at most 15
// characters: "qmgr", "master").
struct ProcessEntry {
    pid_t pid;
    pid_t ppid;
    std::string name;
};

// Calls `visitor` for each process of /proc until it returns 0; the visitor's last result, 1
// when there was nothing to visit, -1 when /proc cannot be opened (logged through quelt_log as
// "unable to open /proc filesystem: %s\n").
int for_each_process(const std::function<int(const ProcessEntry&)>& visitor);

// Prints "$features['<name>'] = <value>;" for "true" and "false", the value in double quotes
// otherwise, and a newline, on standard output. 0, or -1 when nothing could be printed.
int print_feature(const std::string& name, const std::string& value);

// Small lookups and printers of the procedural modules: running processes, feature lines.
#pragma once

#include <sys/types.h>

#include <string>

// The pid of the first process in /proc whose executable is exactly `path`; -1 when none is,
// or when /proc cannot be read (logged through quelt_log).
pid_t findProcessByPath(const std::string& path);

// Prints "$features['<name>'] = <value>;" for "true" and "false", the value in double quotes
// otherwise, and a newline, on standard output. 0, or -1 when nothing could be printed.
int print_feature(const std::string& name, const std::string& value);

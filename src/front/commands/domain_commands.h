// The domain commands: add, remove, turn on, turn off, and the domain disk quota.
#pragma once

#include <sys/types.h>

#include <string>

namespace quelt::mail::postfix::mailrig_commands {

int addDomain(int argc, char* argv[]);
int removeDomain(int argc, char* argv[]);
int enableDomain(int argc, char* argv[]);
int disableDomain(int argc, char* argv[]);
int setDomainDiskQuota(int argc, char* argv[]);

// Sends SIGINT to the running process whose executable is `path`: kill's result, or the
// lookup's result (-1: none found) when no such process runs.
int killproc(const std::string& path);

}  // namespace quelt::mail::postfix::mailrig_commands

// One run of a Postfix command-line tool (postconf, postmap) with its diagnostics collected.
#pragma once

#include <string>
#include <vector>

#include "services/process/pipe.h"

namespace quelt::mail::postfix {

// Runs `args` (argument 0 is the program's path; every entry one argument, no shell) as a
// one-stage pipe. Standard error is collected into `diagnostics`; standard input comes from
// `input` and standard output goes to `output` when given, else they are inherited. The input
// producer's last chunk (the one it fills before answering false) is written too. Returns the
// wait status; throws the process library's errors when the tool cannot be started.
int runTool(const std::vector<std::string>& args, std::string& diagnostics,
            const process::Provider* input = nullptr, const process::Receiver* output = nullptr);

// The run ended normally with exit code 0.
bool succeeded(int waitStatus);

// The text of a failure: the tool's diagnostics, or "unknown error" when it printed none.
std::string failureText(const std::string& diagnostics);

}  // namespace quelt::mail::postfix

// One run of a Postfix command-line tool (postconf, postmap) with its diagnostics collected.
#include "config/maincf/postfix_tool.h"

#include <sys/wait.h>

namespace quelt::mail::postfix {

int runTool(const std::vector<std::string>& args, std::string& diagnostics,
            const process::Provider* input, const process::Receiver* output)
{
    process::StageParameters stage;
    stage.args = args;
    stage.stderrDisposition = process::NewPipe;
    stage.stderrReceiver = process::makeStringReceiver(diagnostics);

    process::Pipe pipe;
    if (input) {
        pipe.stdinFd = process::NewPipe;
        pipe.stdinProvider = *input;
    }
    if (output) {
        pipe.stdoutDisposition = process::NewPipe;
        pipe.stdoutReceiver = *output;
    }
    pipe.append(stage);
    return pipe.run();
}

bool succeeded(int waitStatus)
{
    return WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 0;
}

std::string failureText(const std::string& diagnostics)
{
    return diagnostics.empty() ? "unknown error" : diagnostics;
}

}  // namespace quelt::mail::postfix

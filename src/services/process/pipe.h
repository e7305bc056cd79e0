// Pipelines of child processes: stages, their flags, and the synchronous run that feeds the
// first stage's input and collects outputs in memory through callbacks.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "services/process/process_launch.h"
#include "services/process/process_set_catcher.h"

namespace quelt::process {

using Receiver = std::function<void(const std::vector<char>&)>;
// Fills the buffer with the next input; false when there is no more.
using Provider = std::function<bool(std::vector<char>&)>;
using ExitCallback = std::function<void(unsigned int index, int waitStatus)>;

// What a stage and a whole pipe share. In a Pipe, a stage's own setting wins; where the stage
// leaves one unset (empty, null, -1) the pipe's is used, and close-other-descriptors is on
// when either asks for it.
struct CommonFlags {
    std::string workingDirectory;            // empty: the parent's
    char* const* environment = nullptr;      // NAME=value, NULL-terminated; null: inherited
    bool closeOtherFds = false;              // implied: a child keeps only 0, 1 and 2
    std::function<void()> preExec;           // called in the child right before exec
    int stderrDisposition = -1;              // a StreamDisposition; -1 means inherit
    Receiver stderrReceiver;                 // chunks of a piped stderr
    ExitCallback exitCallback;               // (stage index, wait status) when a stage ends
};

struct PipeProcessFlags : CommonFlags {
    std::string executable;  // empty: argument 0 is the path
};

template <class Flags>
struct Parameters;

// One stage: its flags and its argument vector (argument 0 first).
template <>
struct Parameters<PipeProcessFlags> : PipeProcessFlags {
    std::vector<std::string> args;

    Parameters() { args.reserve(10); }
    // Stores `a0`, then each following argument up to the first empty one.
    explicit Parameters(const std::string& a0, const std::string& a1 = {},
                        const std::string& a2 = {}, const std::string& a3 = {},
                        const std::string& a4 = {}, const std::string& a5 = {},
                        const std::string& a6 = {}, const std::string& a7 = {},
                        const std::string& a8 = {}, const std::string& a9 = {});
};

using StageParameters = Parameters<PipeProcessFlags>;

struct PipeFlags : CommonFlags {
    int stdoutDisposition = -1;  // of the last stage; -1 means inherit
    Receiver stdoutReceiver;     // chunks of a piped stdout
    int stdinFd = -1;            // of the first stage, a StreamDisposition; -1 means inherit
    Provider stdinProvider;      // feeds a piped stdin
};

class Pipe : public PipeFlags {
public:
    Pipe() = default;
    Pipe(const Pipe&) = default;
    Pipe& operator=(const Pipe&) = default;
    virtual ~Pipe() = default;

    // Adds a stage; std::logic_error "adding processes to the launched pipe is prohibited"
    // once the pipe has run.
    void append(const StageParameters& stage);

    // Runs every stage, serves the streams until all stages have ended and all outputs are
    // closed, and returns the wait status of the last stage. Throws std::logic_error "the pipe
    // has been launched already" or "No processes to launch were assigned so far"; a stage
    // that cannot start rethrows its failure (see ProcessLaunch::waitExec) after the stages
    // already started have been collected.
    int run();

    const std::vector<StageParameters>& stages() const { return stages_; }
    // One per stage once launched; empty before.
    const std::vector<ProcessStatus>& statuses() const { return statuses_; }
    bool launched() const { return !statuses_.empty(); }

private:
    std::vector<StageParameters> stages_;
    std::vector<ProcessStatus> statuses_;
};

// Starts one stage (see CommonFlags) with the given stdin and stdout dispositions. The path
// is looked up in PATH unless it starts with "." or "/".
std::unique_ptr<ProcessLaunch> launchOne(const StageParameters& p, int stdinCode, int stdoutCode);

// A receiver appending every chunk to `s`, which must outlive the run.
Receiver makeStringReceiver(std::string& s);

// Writes up to `len` (> 0) bytes of `buf` to the non-blocking `fd`, halving the size while
// the pipe is full; returns the count written. Throws SystemError "write" (EPIPE included).
std::size_t nonblock_write(int fd, const char* buf, std::size_t len);

}  // namespace quelt::process

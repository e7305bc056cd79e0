// A command object for one external program: arguments, environment and input text in,
// both output streams and the return code out, and a failure report that shows them all.
#pragma once

#include <new>
#include <string>

#include "runtime/launch.h"
#include "runtime/traceable.h"

namespace quelt {

class ExecCmd : public CmdLine {
public:
    // The tag of the failure exception, Exc<&ExecCmd::Failed>.
    static ExTag Failed;

    // Argument 0 is `path`; a path without "/" is looked up in PATH.
    explicit ExecCmd(const std::string& path);
    ~ExecCmd() override;

    // Appends one argument.
    virtual ExecCmd& operator<<(const std::string& arg);
    // Sets or replaces one variable of the program's environment.
    virtual void setEnv(const std::string& name, const std::string& value);
    // Runs the program; a non-zero return code throws Exc<&ExecCmd::Failed> (reportError).
    // Launch failures throw SystemError. Returns 0.
    virtual int exec();
    // Runs the program and returns its return code (-1 also when it could not be run).
    virtual int exec(const std::nothrow_t&) noexcept;
    // Runs the program once and returns what forkExecvGetInOutErrSuidEnv gave.
    virtual int execCmdLine();

    // The command line: arguments separated by one space, each sh_quote'd, '' for an empty one.
    std::string getString() const;
    // Throws Exc<&ExecCmd::Failed>, tag "ExecCmd::ExFailed", with the text "Execution of
    // <command line> failed with return code <n>.\n" and the Stdin, Stdout, Stderr blocks.
    [[noreturn]] void reportError() const;

    void setStdin(const std::string& text) { stdin_ = text; }
    // Runs the program as `user` (empty: the current user).
    void setUser(const std::string& user) { user_ = user; }

    const std::string& getStdout() const { return stdout_; }
    const std::string& getStderr() const { return stderr_; }
    int getReturnCode() const { return returnCode_; }
    int getErrno() const { return errno_; }
    bool executed() const { return executed_; }
    bool finished() const { return finished_; }

private:
    std::string stdin_;
    EnvMap env_;
    std::string stdout_;
    std::string stderr_;
    bool executed_ = false;
    bool finished_ = false;
    int errno_ = 0;
    int returnCode_ = 0;
    std::string user_;
};

// "" for an empty text, else "<name> is\n<text>" with a newline added when missing.
std::string prepare_output_string(const std::string& name, const std::string& text);

}  // namespace quelt

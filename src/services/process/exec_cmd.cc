// A command object for one external program and its failure report.
#include "services/process/exec_cmd.h"

#include <cerrno>

#include <boost/format.hpp>

#include "runtime/sh_quote.h"

namespace quelt {

ExTag ExecCmd::Failed;

ExecCmd::ExecCmd(const std::string& path) : CmdLine(path) {}

ExecCmd::~ExecCmd() = default;

ExecCmd& ExecCmd::operator<<(const std::string& arg)
{
    args_.push_back(arg);
    return *this;
}

void ExecCmd::setEnv(const std::string& name, const std::string& value)
{
    env_[name] = value;
}

int ExecCmd::execCmdLine()
{
    executed_ = true;
    returnCode_ = forkExecvGetInOutErrSuidEnv(stdin_, stdout_, stderr_, path_, args_, user_, env_);
    finished_ = true;
    errno_ = errno;
    return returnCode_;
}

int ExecCmd::exec()
{
    if (execCmdLine() != 0)
        reportError();
    return returnCode_;
}

int ExecCmd::exec(const std::nothrow_t&) noexcept
{
    try {
        return execCmdLine();
    } catch (...) {
        errno_ = errno;
        returnCode_ = -1;
        return returnCode_;
    }
}

std::string ExecCmd::getString() const
{
    std::string line;
    for (std::size_t i = 0; i < args_.size(); ++i) {
        if (i > 0)
            line += ' ';
        line += args_[i].empty() ? std::string("''") : sh_quote(args_[i]);
    }
    return line;
}

std::string prepare_output_string(const std::string& name, const std::string& text)
{
    if (text.empty())
        return std::string();
    return (boost::format("%1% is\n%2%%3%") % name % text % (text.back() == '\n' ? "" : "\n")).str();
}

void ExecCmd::reportError() const
{
    Exc<&ExecCmd::Failed> failure("ExecCmd::ExFailed",
                                  "Execution of %1% failed with return code %2%.\n%3%%4%%5%", 3,
                                  "void quelt::ExecCmd::reportError() const", "ExecCmd", 63);
    failure % getString() % returnCode_ % prepare_output_string("Stdin", stdin_)
        % prepare_output_string("Stdout", stdout_) % prepare_output_string("Stderr", stderr_);
    throw failure;
}

}  // namespace quelt

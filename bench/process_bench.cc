// Cost of starting one short program: Pipe::run and ExecCmd against a bare posix_spawn.
// Usage: process_bench [runs] [program]; prints the median and 90th percentile per method.
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "services/process/exec_cmd.h"
#include "services/process/pipe.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

struct Method {
    const char* name;
    std::function<void()> run;
    std::vector<double> micros;
};

void pipeRun(const std::string& program)
{
    quelt::process::Pipe pipe;
    std::string out;
    std::string err;
    pipe.append(quelt::process::StageParameters(program));
    pipe.stdoutDisposition = quelt::process::NewPipe;
    pipe.stdoutReceiver = quelt::process::makeStringReceiver(out);
    pipe.stderrDisposition = quelt::process::NewPipe;
    pipe.stderrReceiver = quelt::process::makeStringReceiver(err);
    if (pipe.run() != 0)
        std::abort();
}

void execCmd(const std::string& program)
{
    quelt::ExecCmd cmd(program);
    cmd.exec();
}

void spawn(const std::string& program)
{
    char* argv[] = {const_cast<char*>(program.c_str()), nullptr};
    pid_t pid;
    if (::posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0)
        std::abort();
    int status;
    if (::waitpid(pid, &status, 0) != pid || status != 0)
        std::abort();
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

}  // namespace

int main(int argc, char* argv[])
{
    const int runs = argc > 1 ? std::atoi(argv[1]) : 1000;
    const std::string program = argc > 2 ? argv[2] : "/bin/true";
    std::vector<Method> methods = {
        {"Pipe::run (stdout+stderr piped)", [&] { pipeRun(program); }, {}},
        {"ExecCmd::exec", [&] { execCmd(program); }, {}},
        {"posix_spawn + waitpid", [&] { spawn(program); }, {}},
    };
    for (auto& m : methods)
        for (int i = 0; i < 20; ++i)
            m.run();  // warm-up
    // Interleaved, so load changes on the machine hit every method alike.
    for (int i = 0; i < runs; ++i)
        for (auto& m : methods) {
            const auto start = Clock::now();
            m.run();
            m.micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        }
    std::printf("| method | median (us) | p90 (us) |\n|---|---|---|\n");
    for (const auto& m : methods)
        std::printf("| %s | %.0f | %.0f |\n", m.name, percentile(m.micros, 0.5), percentile(m.micros, 0.9));
    return 0;
}

// Logging of the procedural modules and the messlog2 printer.
#include "runtime/log.h"

#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

int g_level = 6;
int g_facility = LOG_MAIL;

void vlogToConsole(int priority, const char* format, va_list args)
{
    if (g_level < priority)
        return;
    va_list copy;
    va_copy(copy, args);
    std::vfprintf(stderr, format, copy);
    va_end(copy);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    va_copy(copy, args);
    std::vfprintf(stdout, format, copy);
    va_end(copy);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

const char* PROGNAME = nullptr;

void _quelt_utility_logv(int priority, const char* format, va_list args)
{
    vlogToConsole(priority, format, args);
}

void _quelt_utility_log(int priority, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vlogToConsole(priority, format, args);
    va_end(args);
}

quelt_log_fn quelt_log = _quelt_utility_log;
quelt_logv_fn quelt_logv = _quelt_utility_logv;

void quelt_log_init(const char* target, int level, int facility, int options, const char* ident)
{
    g_facility = facility;
    g_level = level < 1 ? 0 : level;
    if (target) {
        quelt_log = _quelt_utility_log;
        quelt_logv = _quelt_utility_logv;
        return;
    }
    closelog();
    openlog(ident, options | LOG_PID, g_facility);
    quelt_log = syslog;
    quelt_logv = vsyslog;
}

int ex_messlog(const char* text, int status, int)
{
    const std::size_t len = std::strlen(text);
    const bool newline = len > 0 && text[len - 1] == '\n';
    for (FILE* stream : {stderr, stdout}) {
        if (PROGNAME) {
            const char* base = std::strrchr(PROGNAME, '/');
            std::fprintf(stream, "%s: ", base ? base + 1 : PROGNAME);
        }
        std::fputs(text, stream);
        if (!newline)
            std::fputc('\n', stream);
        std::fflush(stream);
    }
    if (status != 0)
        std::exit(status);
    return 0;
}

int vmesslog2(int status, int, const char* format, va_list args)
{
    const int saved = errno;
    std::string text;
    try {
        std::vector<char> buffer(4096);
        va_list copy;
        va_copy(copy, args);
        const int needed = std::vsnprintf(buffer.data(), buffer.size(), format, copy);
        va_end(copy);
        if (needed >= static_cast<int>(buffer.size())) {
            buffer.resize(static_cast<std::size_t>(needed) + 1);
            va_copy(copy, args);
            std::vsnprintf(buffer.data(), buffer.size(), format, copy);
            va_end(copy);
        }
        text = buffer.data();
        errno = saved;
        if (saved != 0)
            text += "\nSystem error " + std::to_string(saved) + ": " + std::strerror(saved);
    } catch (...) {
        text = "Can't allocate memory for error message";
    }
    return ex_messlog(text.c_str(), status);
}

int messlog2(int status, int unused, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = vmesslog2(status, unused, format, args);
    va_end(args);
    return result;
}

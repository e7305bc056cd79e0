// Logging of the procedural modules: the switchable quelt_log (syslog or console) and the
// message printer messlog2 that writes to both standard streams and may end the process.
#pragma once

#include <cstdarg>

// Without a target ("console" is the only one) logs go to syslog under `ident`, with LOG_PID
// added to `options`; with it, to the console logger, which prints priorities up to `level`.
void quelt_log_init(const char* target, int level, int facility, int options, const char* ident);

using quelt_log_fn = void (*)(int priority, const char* format, ...);
using quelt_logv_fn = void (*)(int priority, const char* format, va_list args);

extern quelt_log_fn quelt_log;
extern quelt_logv_fn quelt_logv;

// The console logger: the text and a newline on standard error, then on standard output.
void _quelt_utility_log(int priority, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void _quelt_utility_logv(int priority, const char* format, va_list args);

// Formats the message, appends "\nSystem error N: text" when errno is set, and prints it
// through ex_messlog; a non-zero status then ends the process with that status.
int messlog2(int status, int unused, const char* format, ...) __attribute__((format(printf, 3, 4)));
int vmesslog2(int status, int unused, const char* format, va_list args);

// Writes the text (and a newline when missing) to standard error, then standard output.
int ex_messlog(const char* text, int status, int unused = 0);

// The program path shown before messages; never set by mailrig itself.
extern const char* PROGNAME;

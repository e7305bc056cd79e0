// quelt::uerr: the error stream of the command handlers. Every character goes to standard
// error at once; each synchronisation (a flush, std::endl, program end) copies the text
// written since the last one to standard output, so the panel sees it on both.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace quelt {

class UtilityErrorStreamBuf : public std::streambuf {
protected:
    int_type overflow(int_type ch) override;
    std::streamsize xsputn(const char* s, std::streamsize n) override;
    int sync() override;

private:
    std::string pending_;
};

class UtilityErrorStream : public std::ostream {
public:
    UtilityErrorStream();
    ~UtilityErrorStream() override;

private:
    UtilityErrorStreamBuf buf_;
};

extern UtilityErrorStream uerr;

}  // namespace quelt

// quelt::uerr: standard error at once, standard output at each synchronisation.
#include "runtime/uerr.h"

#include <cstdio>

namespace quelt {

UtilityErrorStreamBuf::int_type UtilityErrorStreamBuf::overflow(int_type ch)
{
    if (traits_type::eq_int_type(ch, traits_type::eof()))
        return traits_type::not_eof(ch);
    const char c = traits_type::to_char_type(ch);
    if (std::fputc(c, stderr) == EOF)
        return traits_type::eof();
    pending_ += c;
    return ch;
}

std::streamsize UtilityErrorStreamBuf::xsputn(const char* s, std::streamsize n)
{
    const std::size_t written = std::fwrite(s, 1, static_cast<std::size_t>(n), stderr);
    pending_.append(s, written);
    return static_cast<std::streamsize>(written);
}

int UtilityErrorStreamBuf::sync()
{
    std::fflush(stderr);
    if (!pending_.empty()) {
        std::fwrite(pending_.data(), 1, pending_.size(), stdout);
        pending_.clear();
    }
    return std::fflush(stdout) == 0 ? 0 : -1;
}

UtilityErrorStream::UtilityErrorStream() : std::ostream(&buf_) {}

UtilityErrorStream::~UtilityErrorStream()
{
    buf_.pubsync();
}

UtilityErrorStream uerr;

}  // namespace quelt

// The host's fully qualified name.
#include "model/managers/hostname.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/file_stream.h"
#include "runtime/log.h"

namespace quelt::mail {

namespace {

// Names are read into 65-byte buffers: 64 characters at most.
constexpr std::size_t kNameBuffer = 65;

// The first line of `path`, when the file can be read.
bool firstLine(const char* path, std::string& line)
{
    quelt::InputFile in(path);
    return in && std::getline(in, line);
}

}  // namespace

int get_hostname_fqdn(std::string& name)
{
    name.clear();
    char host[kNameBuffer] = {};
    if (::gethostname(host, kNameBuffer - 1) != 0) {
        quelt_log(LOG_ERR, "Unable to get hostname or domainname: %s", std::strerror(errno));
        return -1;
    }
    if (std::strchr(host, '.')) {
        name = host;
        return 0;
    }
    char domain[kNameBuffer] = {};
    if (::getdomainname(domain, kNameBuffer - 1) != 0) {
        quelt_log(LOG_ERR, "Unable to get hostname or domainname: %s", std::strerror(errno));
        return -1;
    }
    // "(none)" is what Linux reports for an unset NIS domain name.
    if (domain[0] != '\0' && std::strcmp(domain, "(none)") != 0) {
        const std::string fqdn = std::string(host) + "." + domain;
        if (fqdn.size() >= kNameBuffer) {
            quelt_log(LOG_ERR, "Buffer too short for compose FQDN hostname");
            return -1;
        }
        name = fqdn;
        return 0;
    }
    for (const char* path : {"/etc/HOSTNAME", "/etc/hostname"}) {
        std::string line;
        if (firstLine(path, line) && line.find('.') != std::string::npos) {
            if (line.size() >= kNameBuffer) {
                quelt_log(LOG_ERR, "Buffer too short for hostname");
                return -1;
            }
            name = line;
            return 0;
        }
    }
    quelt_log(LOG_ERR, "Unable to detect the FQDN of the host.\nPlease make sure that the host name is "
                       "correctly specified in /etc/hosts and goes right after the host's IP address.\n"
                       "Depending on your OS, you might need to set the host name in /etc/HOSTNAME or "
                       "/etc/hostname.");
    return -1;
}

}  // namespace quelt::mail

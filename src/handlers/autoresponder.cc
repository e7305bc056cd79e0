// The autoresponder hook: one recipient handler per address, before local delivery.
#include "handlers/autoresponder.h"

#include <syslog.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include "handlers/mail_handlers.h"
#include "model/names/idn.h"
#include "model/names/mailname.h"
#include "model/names/name_checks.h"
#include "runtime/log.h"

namespace {

constexpr int kPriority = 90;
constexpr const char* kName = "autoresponder";
constexpr const char* kExecutable = "/usr/local/zvt/handlers/hooks/autoresponder";
constexpr const char* kContext = "responder";
constexpr std::string::size_type kMaxAddress = 254;

// Runs of commas and blanks separate the items; a separator at either end still leaves an empty
// item there, which no check lets through.
bool splitList(const char* text, std::vector<std::string>& items)
{
    if (!text)
        return false;
    const std::string list(text);
    boost::algorithm::split(items, list, boost::algorithm::is_any_of(", "),
                            boost::algorithm::token_compress_on);
    return true;
}

// The handler record of one address; false (logged) when the domain or the address is refused.
bool recordFor(const std::string& mailname, const std::string& domain, mh_data& record)
{
    std::string ascii;
    try {
        ascii = quelt::names::checkedDomain(domain);
    } catch (const quelt::idn::IdnaError& e) {
        quelt_log(LOG_ERR, "idn_toascii() failed: %s", e.what());
        return false;
    } catch (const std::invalid_argument& e) {
        quelt_log(LOG_ERR, "%s", e.what());
        return false;
    }
    const std::string address = mailname + "@" + ascii;
    if (address.size() > kMaxAddress) {
        quelt_log(LOG_ERR, "domain name too long\n");
        return false;
    }
    mh_data_init_ex(record);
    record.priority = kPriority;
    record.type = MH_TYPE_RECIPIENT;
    record.queue = MH_QUEUE_BEFORE_LOCAL;
    record.name = std::string(kName);
    record.address = address;
    record.executable = std::string(kExecutable);
    record.context = std::string(kContext);
    record.enabled = 1;
    return true;
}

}  // namespace

int autoresponder_action(const char* mailnames, const char* domains, int action)
{
    std::vector<std::string> names;
    std::vector<std::string> domainList;
    if (!splitList(mailnames, names)) {
        quelt_log(LOG_ERR, "Unable to split mailnames list");
        return -1;
    }
    if (!splitList(domains, domainList)) {
        quelt_log(LOG_ERR, "Unable to split domains list");
        return -1;
    }
    for (std::string& name : names) {
        if (!is_mailname_valid(name.c_str())) {
            quelt_log(LOG_ERR, "Mailname '%s' is not valid", quelt::names::printable(name).c_str());
            return -1;
        }
        // One spelling per address in the database, as everywhere else.
        boost::algorithm::to_lower(name);
    }

    mh_list records;
    for (const std::string& name : names) {
        for (const std::string& domain : domainList) {
            mh_data record;
            if (!recordFor(name, domain, record) || mh_list_add(records, record) != 0) {
                quelt_log(LOG_ERR, "Unable to make action for some autoresponder handlers");
                return -1;
            }
        }
    }

    switch (action) {
    case AUTORESPONDER_ADD:
        return mh_db_do(records, nullptr, mh_db_add);
    case AUTORESPONDER_REMOVE:
        return mh_db_do(records, nullptr, mh_db_remove);
    default:
        return 0;
    }
}

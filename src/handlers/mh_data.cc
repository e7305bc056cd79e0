// Handler records and lists, the names of types and queues, and the database location.
#include <syslog.h>

#include <iterator>
#include <new>

#include "handlers/mail_handlers.h"
#include "runtime/log.h"

namespace {

const char* const kQueueNames[] = {"before-data", "before-queue", "before-local", "before-remote"};
const char* const kTypeNames[] = {"sender", "recipient", "sender-domain", "recipient-domain", "global"};
const char* const kUnknown = "unknown";

std::string& dbPath()
{
    static std::string path = "/var/lib/quelt/mail/handlers/handlers.db";
    return path;
}

template <std::size_t N>
int valueOf(const char* const (&names)[N], const std::string& name)
{
    for (std::size_t i = 0; i < N; ++i)
        if (name == names[i])
            return static_cast<int>(i);
    return static_cast<int>(N);
}

template <std::size_t N>
const char* nameOf(const char* const (&names)[N], int value)
{
    return value >= 0 && static_cast<std::size_t>(value) < N ? names[value] : kUnknown;
}

}  // namespace

void mh_data_init_ex(mh_data& record)
{
    record = mh_data{};
}

int mh_list_add(mh_list& list, const mh_data& record)
{
    try {
        list.push_front(record);
    } catch (const std::bad_alloc&) {
        quelt_log(LOG_ERR, "Unable to clone handlers data record");
        return -1;
    }
    return 0;
}

int mh_get_type(const std::string& name)
{
    return valueOf(kTypeNames, name);
}

int mh_get_queue(const std::string& name)
{
    return valueOf(kQueueNames, name);
}

const char* mhc_get_typestr(int type)
{
    return nameOf(kTypeNames, type);
}

const char* mhc_get_queuestr(int queue)
{
    return nameOf(kQueueNames, queue);
}

void mh_db_path_set(const std::string& path)
{
    dbPath() = path;
}

const std::string& mh_db_path()
{
    return dbPath();
}

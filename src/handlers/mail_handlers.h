// The mail-handlers database: handler records, lists of them, and the operations that keep
// the registrations in step with the addresses, mailnames and domains the mail manager changes.
#pragma once

#include <forward_list>
#include <optional>
#include <string>

namespace quelt::sqlite {
class Database;
}

// Hook points, stored as integers in the `queue` column.
enum mh_queue_value : int {
    MH_QUEUE_BEFORE_DATA = 0,
    MH_QUEUE_BEFORE_QUEUE = 1,
    MH_QUEUE_BEFORE_LOCAL = 2,
    MH_QUEUE_BEFORE_REMOTE = 3,
    MH_QUEUE_UNKNOWN = 4,
};

// Handler types, stored as integers in the `type` column.
enum mh_type_value : int {
    MH_TYPE_SENDER = 0,
    MH_TYPE_RECIPIENT = 1,
    MH_TYPE_SENDER_DOMAIN = 2,
    MH_TYPE_RECIPIENT_DOMAIN = 3,
    MH_TYPE_GLOBAL = 4,
    MH_TYPE_UNKNOWN = 5,
};

// The addresses a global handler may carry.
inline constexpr const char* MH_ADDR_ALL = "all";
inline constexpr const char* MH_ADDR_ALL_RECIPIENTS = "all-recipients";

// One row of the handlers table. An absent string is distinct from an empty one: an absent
// address of a global handler means "all", an absent context is stored as "none".
struct mh_data {
    int priority = 0;  // higher runs first
    int type = MH_TYPE_UNKNOWN;
    int queue = MH_QUEUE_UNKNOWN;
    std::optional<std::string> name;
    std::optional<std::string> address;
    std::optional<std::string> executable;
    std::optional<std::string> context;
    int enabled = 0;
};

// Resets every field: priority 0, unknown type and queue, no strings, disabled.
void mh_data_init_ex(mh_data& record);

// Records are inserted at the front, so a list filled from a query is walked in the reverse
// of the order its rows were read.
using mh_list = std::forward_list<mh_data>;

// Inserts a copy of `record` at the front; 0, or -1 (logged) when memory runs out.
int mh_list_add(mh_list& list, const mh_data& record);

// Name <-> value by exact comparison; unknown names give the "unknown" values, values outside
// the tables give "unknown".
int mh_get_type(const std::string& name);
int mh_get_queue(const std::string& name);
const char* mhc_get_typestr(int type);
const char* mhc_get_queuestr(int queue);

// The database file every operation opens when given no connection.
void mh_db_path_set(const std::string& path);
const std::string& mh_db_path();

// Every operation below takes an open connection or null; with null it opens the database
// file read-write (busy timeout 50 ms) and closes it before returning. All return 0 on
// success and -1 on failure, logging each failure once through quelt_log.

// Inserts or replaces the record's row. A global record's absent or empty address becomes
// "all"; an absent context becomes "none" (both written back into `record`).
int mh_db_add(quelt::sqlite::Database* db, mh_data& record);
// Deletes the record's row; a global record, or one whose address is absent, empty or "all",
// has its address set to "all" and loses the handler for every address.
int mh_db_remove(quelt::sqlite::Database* db, mh_data& record);
// Sets `enabled` of the record's row(s) to 1 / 0, with the scope rule of mh_db_remove.
int mh_db_enable(quelt::sqlite::Database* db, mh_data& record);
int mh_db_disable(quelt::sqlite::Database* db, mh_data& record);

// Deletes every handler of one address / of one handler name.
int mh_db_remove_addr(quelt::sqlite::Database* db, const std::string& address);
int mh_db_remove_name(quelt::sqlite::Database* db, const std::string& name);
// Deletes every handler whose address is "<local>@domain" (not the domain's own handlers).
int mh_db_remove_all(quelt::sqlite::Database* db, const std::string& domain);

// Copies handlers, leaving the source rows. With a mailname: those of "mailname@domain" to
// "newMailname@newDomain" ("mailname@newDomain" without a new mailname). Without one: those of
// every "<local>@domain" to "<local>@newDomain" and those of the domain itself to newDomain.
int mh_db_clone(quelt::sqlite::Database* db, const std::optional<std::string>& mailname,
                const std::string& domain, const std::optional<std::string>& newMailname,
                const std::string& newDomain);

// Switches every handler of a name, whatever its type, queue and address (1 on, else off).
int mh_db_switch_by_name(quelt::sqlite::Database* db, const std::string& name, int enabled);
// Switches the handlers of every "<local>@domain" and of the domain itself (1 on, else off).
int mh_db_switch_by_addr(quelt::sqlite::Database* db, const std::string& domain, int enabled);

// Adds to `list` the handlers whose address is "<local>@domain" exactly.
int mh_db_select_by_name(quelt::sqlite::Database* db, mh_list& list, const std::string& domain);

using mh_db_action = int (*)(quelt::sqlite::Database*, mh_data&);
// Applies `action` (mh_db_add, mh_db_remove, mh_db_enable, mh_db_disable) to every record in
// list order inside one transaction. Failures of single records are logged and skipped; -1
// only when the transaction cannot be begun or ended.
int mh_db_do(mh_list& list, quelt::sqlite::Database* db, mh_db_action action);

// The runner's lookup: adds (executable, context, name) of the enabled-as-asked handlers of the
// query's queue, type and address, read highest priority first. A global query's address must
// be absent, "all" or "all-recipients".
int mh_db_select(quelt::sqlite::Database* db, mh_list& list, const mh_data& query);

// Moves every handler of one address to another.
int mh_db_move_addr(quelt::sqlite::Database* db, const std::string& oldAddress, const std::string& newAddress);

// Creates the directory of the database path and the schema in the database file (created
// when missing). The handler utility owns this step; mailrig's commands never call it.
int mh_db_create(quelt::sqlite::Database* db);

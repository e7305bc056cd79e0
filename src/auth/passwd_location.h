// Where the password database and its key live: one process-wide choice between the qmail
// layout (style 0, the initial one) and the Postfix layout (style 1).
#pragma once

#include <string>

// Style 0 or 1 sets both paths; any other style leaves them as they are.
void mailAuthDBSelectStyle(int style);
void mailAuthDBSetPath(const std::string& path);
void mailAuthKeySetPath(const std::string& path);
const std::string& mailAuthDBPath();
const std::string& mailAuthKeyPath();
// The directory of `dbPath` followed by "/passwd_db_key".
std::string mailAuthDBToKeyPath(const std::string& dbPath);

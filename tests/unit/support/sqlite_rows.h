// Every row a query gives on an SQLite file, for checking what the code under test stored.
#pragma once

#include <sqlite3.h>

#include <string>
#include <vector>

#include "auth/sqlite_db.h"

// Each row as "col|col|..." with NULL for null columns; one "query failed: ..." row on failure.
inline std::vector<std::string> rows(const std::string& dbPath, const std::string& sql)
{
    quelt::sqlite::Database db;
    quelt::sqlite::Statement st;
    std::vector<std::string> out;
    if (db.open(dbPath, SQLITE_OPEN_READONLY) != SQLITE_OK || st.prepare(db, sql) != SQLITE_OK)
        return {"query failed: " + sql};
    while (st.step() == SQLITE_ROW) {
        std::string row;
        for (int i = 0; i < sqlite3_column_count(st.get()); ++i) {
            const char* text = st.columnText(i);
            row += (i ? "|" : "") + std::string(text ? text : "NULL");
        }
        out.push_back(row);
    }
    return out;
}

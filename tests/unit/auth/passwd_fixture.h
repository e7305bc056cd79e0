// A fresh password database and key in a temporary folder, and a way to read its rows.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

#include "auth/passwd_db.h"
#include "auth/sqlite_db.h"
#include "key_files.h"
#include "support/sqlite_rows.h"

class PasswdDbFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        dbPath_ = dir_.file("passwd.db");
        keyPath_ = dir_.file("passwd_db_key");
        mailAuthDBSetPath(dbPath_);
        mailAuthKeySetPath(keyPath_);
        writeFile(keyPath_, fixedKey(11));
        quelt::sqlite::Database db;
        ASSERT_EQ(db.open(dbPath_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), SQLITE_OK);
        ASSERT_EQ(db.exec(kMailAuthSchema), SQLITE_OK);
    }

    std::vector<std::string> users()
    {
        return rows(dbPath_, "SELECT u.name || '@' || d.name, u.status, d.status FROM users u, domains d "
                             "WHERE u.dom_id = d.id ORDER BY d.name, u.name");
    }

    TempDir dir_;
    std::string dbPath_, keyPath_;
};

#pragma once

#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace vexo::testing {

// Runs `sql` on the index file at `path` directly, as another program's writer would; a
// failure fails the calling test.
inline void executeSql(const std::filesystem::path& path, const std::string& sql) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << (message ? message : "");
    sqlite3_free(message);
    sqlite3_close(database);
}

} // namespace vexo::testing

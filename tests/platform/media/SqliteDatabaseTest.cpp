#include "platform/media/SqliteDatabase.h"

#include <fstream>

#include <gtest/gtest.h>

#include "support/TemporaryDirectory.h"

namespace vexo::media {
namespace {

namespace fs = std::filesystem;

// Callers tell a database held by another process (try again) from a damaged file (give up)
// by the kind alone.
TEST(SqliteDatabaseTest, FailuresCarryTheKindACallerActsOn) {
    vexo::testing::TemporaryDirectory folder;
    const fs::path shared = folder.path() / "shared.sqlite";
    const fs::path text = folder.path() / "text.sqlite";
    std::ofstream(text) << std::string(4096, 'x');

    auto holder = SqliteDatabase::open(shared);
    ASSERT_TRUE(holder);
    ASSERT_TRUE((*holder)->execute("CREATE TABLE t (x); BEGIN EXCLUSIVE; INSERT INTO t VALUES (1);"));

    struct Row {
        fs::path path;
        const char* sql;
        ErrorKind kind;
    };
    const Row rows[] = {
        {shared, "SELECT * FROM t", ErrorKind::Busy},
        {text, "SELECT * FROM sqlite_master", ErrorKind::InvalidData},
    };
    for (const Row& row : rows) {
        auto database = SqliteDatabase::open(row.path);
        ASSERT_TRUE(database) << row.path;
        ASSERT_TRUE((*database)->execute("PRAGMA busy_timeout = 0"));
        const auto done = (*database)->execute(row.sql);
        ASSERT_FALSE(done) << row.sql;
        EXPECT_EQ(done.error().kind(), row.kind) << row.sql << ": " << done.error().message();
        EXPECT_EQ(done.error(), (*database)->lastError());
    }
}

} // namespace
} // namespace vexo::media

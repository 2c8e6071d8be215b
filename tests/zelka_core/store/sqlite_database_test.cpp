#include "zelka_core/store/sqlite_database.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <map>
#include <memory>

#include "tests/support/captured_log.h"
#include "zelka_core/store/dom.h"

namespace ZelkaCore {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

SqliteTuning Tuned(std::map<std::string, std::string> variables) {
    return TuningFrom([&](const std::string& name) { return variables[name]; });
}

TEST(SqliteTuning, TakesEveryVariableAndTellsAndIgnoresAValueThatIsNoNumberOrOutOfRange) {
    const CapturedLog log;
    EXPECT_EQ(Tuned({{"sqlite.config.cache_size", "-64"},
                     {"sqlite.config.mmap_size", "2147418112"},
                     {"sqlite.config.busy_timeout", "0"},
                     {"sqlite.config.synchronous", "1"},
                     {"sqlite.config.wal_autocheckpoint", "7"}}),
              (SqliteTuning{-64, 2147418112, 0, SqliteTuning::kNormal, 7}));
    EXPECT_EQ(Tuned({{"sqlite.config.cache_size", "2000 pages"},
                     {"sqlite.config.mmap_size", "99999999999999999999"},
                     {"sqlite.config.busy_timeout", "-1"},
                     {"sqlite.config.synchronous", "0"}}),
              SqliteTuning());
    EXPECT_THAT(log.Lines(),
                ElementsAre(HasSubstr("cache_size is '2000 pages'"), HasSubstr("mmap_size"),
                            HasSubstr("busy_timeout is '-1'"), HasSubstr("from 1 to 3")));
}

TEST(SqliteDatabase, SetUpTakesTheStoresTuningAndBringsMessagesToTheLogUntilShutdown) {
    ASSERT_EQ(sqlite3_shutdown(), SQLITE_OK);
    const CapturedLog log;
    const std::unique_ptr<CDom> dom(CDom::New(nullptr, nullptr, nullptr, false));
    dom->SetWx("sqlite.config.busy_timeout", std::int64_t{17});
    CSqliteDatabase::InitializeSQLite(*dom);
    EXPECT_EQ(CSqliteDatabase::Tuning().busyTimeout, 17);
    sqlite3_log(SQLITE_WARNING, "something %d", 7);
    CSqliteDatabase::ShutdownSQLite();
    sqlite3_log(SQLITE_WARNING, "unheard");
    EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("something 7")));
    EXPECT_EQ(CSqliteDatabase::Tuning(), SqliteTuning());
}

}  // namespace
}  // namespace ZelkaCore

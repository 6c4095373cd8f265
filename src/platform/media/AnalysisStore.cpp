#include "platform/media/AnalysisStore.h"

#include <algorithm>
#include <system_error>

#include "platform/media/LibraryIndex.h"
#include "platform/media/SqliteDatabase.h"
#include "platform/media/SqliteStatement.h"

namespace vexo::media {
namespace {

namespace fs = std::filesystem;

fs::path canonicalOrAbsolute(const fs::path& path) {
    std::error_code code;
    fs::path canonical = fs::weakly_canonical(fs::absolute(path, code), code);
    return code ? fs::absolute(path, code).lexically_normal() : canonical;
}

bool isWithin(const fs::path& file, const fs::path& place) {
    const std::string fileText = file.string();
    const std::string placeText = place.string();
    if (fileText == placeText)
        return true;
    if (fileText.size() <= placeText.size() || fileText.compare(0, placeText.size(), placeText) != 0)
        return false;
    return placeText.ends_with('/') || fileText[placeText.size()] == '/';
}

} // namespace

AnalysisStore::AnalysisStore(std::unique_ptr<SqliteDatabase> database)
    : m_database(std::move(database)) {}

AnalysisStore::~AnalysisStore() = default;

Expected<std::unique_ptr<AnalysisStore>> AnalysisStore::open(const std::filesystem::path& path) {
    auto database = LibraryIndex::open(path);
    if (!database)
        return std::move(database).error();
    // A reader of the index may hold it for a moment; wait rather than fail.
    (void)(*database)->execute("PRAGMA busy_timeout = 5000");
    return std::unique_ptr<AnalysisStore>(new AnalysisStore(std::move(database).value()));
}

std::vector<AnalysisStore::Pending> AnalysisStore::pending(int version, bool force,
                                                           const std::vector<std::filesystem::path>& only) const {
    std::vector<fs::path> places;
    for (const fs::path& place : only)
        places.push_back(canonicalOrAbsolute(place));
    auto statement = m_database->prepare(
        "SELECT i.persistent_id, i.path, i.modified_ns, i.size FROM items i"
        " LEFT JOIN analysis a ON a.item_id = i.persistent_id"
        " WHERE i.present = 1 AND (?1 OR a.item_id IS NULL OR a.version < ?2 OR a.modified_ns != i.modified_ns"
        " OR a.size != i.size)"
        " ORDER BY i.title COLLATE NOCASE, i.title, i.persistent_id");
    statement.bind(1, static_cast<std::int64_t>(force ? 1 : 0));
    statement.bind(2, static_cast<std::int64_t>(version));
    std::vector<Pending> found;
    while (statement.step() == SqliteStatement::Step::Row) {
        Pending item{LibraryIndex::persistentID(statement.integer(0)), statement.text(1), statement.integer(2),
                     statement.integer(3)};
        const bool wanted = places.empty() || std::any_of(places.begin(), places.end(), [&](const fs::path& place) {
                                return isWithin(item.path, place);
                            });
        if (wanted)
            found.push_back(std::move(item));
    }
    return found;
}

Expected<void> AnalysisStore::store(const Pending& item, const ItemAnalysis& analysis) {
    auto statement = m_database->prepare(
        "INSERT OR REPLACE INTO analysis (item_id, version, modified_ns, size, bpm, first_beat, musical_key,"
        " loudness, true_peak, failure) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)");
    statement.bind(1, LibraryIndex::stored(item.persistentID));
    statement.bind(2, static_cast<std::int64_t>(analysis.version));
    statement.bind(3, item.modifiedNs);
    statement.bind(4, item.size);
    const auto bindReal = [&](int index, const std::optional<double>& value) {
        if (value)
            statement.bind(index, *value);
        else
            statement.bindNull(index);
    };
    const auto bindText = [&](int index, const std::optional<std::string>& value) {
        if (value)
            statement.bind(index, std::string_view(*value));
        else
            statement.bindNull(index);
    };
    bindReal(5, analysis.beatsPerMinute);
    bindReal(6, analysis.firstBeatSeconds);
    bindText(7, analysis.key);
    bindReal(8, analysis.loudnessLUFS);
    bindReal(9, analysis.truePeakDBTP);
    bindText(10, analysis.failure);
    if (statement.step() != SqliteStatement::Step::Done)
        return m_database->lastError().withContext("cannot store the analysis of " + item.path.string());
    return {};
}

Expected<void> AnalysisStore::begin() {
    return m_database->execute("BEGIN IMMEDIATE");
}

Expected<void> AnalysisStore::commit() {
    return m_database->execute("COMMIT");
}

} // namespace vexo::media

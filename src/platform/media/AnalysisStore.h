#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/base/Expected.h"
#include "platform/media/MediaItem.h"
#include "platform/media/MediaType.h"

// The analysis table of the media library index (LibraryIndex.h): which songs still need
// analysing, and what the analyser found. Used by one thread at a time; other processes
// keep reading the index meanwhile.
namespace vexo::media {

class SqliteDatabase;

class AnalysisStore {
public:
    // A present item to analyse, with the file's state the scan recorded.
    struct Pending {
        PersistentID persistentID = 0;
        std::filesystem::path path;
        std::int64_t modifiedNs = 0;
        std::int64_t size = 0;
    };

    // Opens (or makes, or upgrades) the index at `path`; fails as LibraryIndex::open.
    [[nodiscard]] static Expected<std::unique_ptr<AnalysisStore>> open(const std::filesystem::path& path);
    ~AnalysisStore();
    AnalysisStore(const AnalysisStore&) = delete;
    AnalysisStore& operator=(const AnalysisStore&) = delete;

    // Present items never analysed, analysed by a version older than `version`, or whose file
    // changed since (its modification time or size); every present item when `force`. When
    // `only` is not empty, only the items whose file is one of those paths or lies in one of
    // those folders (as given, made absolute and canonical where they exist). In title order.
    [[nodiscard]] std::vector<Pending> pending(int version, bool force,
                                               const std::vector<std::filesystem::path>& only) const;

    // Stores what analysing `item` found, replacing what was stored; fails when the index
    // cannot be written (Busy while another process holds it past the busy timeout).
    [[nodiscard]] Expected<void> store(const Pending& item, const ItemAnalysis& analysis);

    // Store calls between these share one transaction (far faster than one each).
    [[nodiscard]] Expected<void> begin();
    [[nodiscard]] Expected<void> commit();

private:
    explicit AnalysisStore(std::unique_ptr<SqliteDatabase> database);
    std::unique_ptr<SqliteDatabase> m_database;
};

} // namespace vexo::media

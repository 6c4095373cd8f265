#include "platform/analysis/LibraryAnalyzer.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "platform/analysis/TrackAnalyzer.h"
#include "platform/media/AnalysisStore.h"

namespace vexo::analysis {
namespace {

media::ItemAnalysis storedForm(const TrackAnalysis& analysis) {
    media::ItemAnalysis stored;
    stored.version = kAnalysisVersion;
    stored.beatsPerMinute = analysis.beatsPerMinute;
    stored.firstBeatSeconds = analysis.firstBeatSeconds;
    stored.key = analysis.key;
    stored.loudnessLUFS = analysis.loudnessLUFS;
    stored.truePeakDBTP = analysis.truePeakDBTP;
    if (analysis.failure)
        stored.failure = analysis.failure->message();
    return stored;
}

struct Finished {
    std::size_t index;
    TrackAnalysis analysis;
};

} // namespace

unsigned LibraryAnalyzer::threadCount(unsigned requested) {
    if (requested > 0)
        return requested;
    return std::max(1u, std::thread::hardware_concurrency());
}

Expected<LibraryAnalyzer::Summary> LibraryAnalyzer::analyze(const std::filesystem::path& indexPath,
                                                            const Options& options,
                                                            const std::function<void(const Progress&)>& progress) {
    const auto started = std::chrono::steady_clock::now();
    auto opened = media::AnalysisStore::open(indexPath);
    if (!opened)
        return std::move(opened).error();
    const std::unique_ptr<media::AnalysisStore> store = std::move(opened).value();
    const std::vector<media::AnalysisStore::Pending> songs =
        store->pending(kAnalysisVersion, options.force, options.only);

    Summary summary;
    summary.threads = std::min<unsigned>(threadCount(options.threads), std::max<std::size_t>(1, songs.size()));
    std::atomic<bool> stop{false};
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::condition_variable finishedChanged;
    std::deque<Finished> finished;
    const auto cancelled = [&] { return stop.load() || (options.cancel != nullptr && options.cancel->load()); };

    // Workers take the next song, analyse it and hand the result to this thread, which alone
    // writes the index.
    std::vector<std::jthread> workers;
    for (unsigned t = 0; t < summary.threads; ++t) {
        workers.emplace_back([&] {
            for (;;) {
                if (cancelled())
                    break;
                const std::size_t index = next.fetch_add(1);
                if (index >= songs.size())
                    break;
                TrackAnalysis analysis = TrackAnalyzer::analyzeFile(songs[index].path, options.cancel);
                const std::lock_guard lock(mutex);
                finished.push_back({index, std::move(analysis)});
                finishedChanged.notify_one();
            }
            const std::lock_guard lock(mutex);
            finished.push_back({songs.size(), {}});
            finishedChanged.notify_one();
        });
    }

    unsigned workersDone = 0;
    std::optional<Error> writeFailed;
    while (workersDone < summary.threads) {
        Finished item;
        {
            std::unique_lock lock(mutex);
            finishedChanged.wait(lock, [&] { return !finished.empty(); });
            item = std::move(finished.front());
            finished.pop_front();
        }
        if (item.index == songs.size()) {
            ++workersDone;
            continue;
        }
        if ((item.analysis.failure && item.analysis.failure->kind() == ErrorKind::Cancelled) || writeFailed)
            continue;
        const auto& song = songs[item.index];
        if (auto stored = store->store(song, storedForm(item.analysis)); !stored) {
            writeFailed = std::move(stored).error();
            stop = true;
            continue;
        }
        ++summary.songs;
        summary.audioSeconds += item.analysis.durationSeconds;
        if (!item.analysis.failure)
            ++summary.complete;
        else
            summary.problems.push_back({song.path, item.analysis.failure->message()});
        if (progress)
            progress({summary.songs, songs.size(), song.path});
    }
    workers.clear();
    if (writeFailed)
        return std::move(*writeFailed);
    summary.cancelled = options.cancel != nullptr && options.cancel->load() && summary.songs < songs.size();
    summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return summary;
}

} // namespace vexo::analysis

#include "audio/Track.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/audio/AudioFormat.h"
#include "platform/audio/Decoder.h"

namespace vexo::sound {
namespace {

constexpr std::int64_t kChunkFrames = 16384;
constexpr std::size_t kChunkSamples = kChunkFrames * audio::kChannels;
// The index has room for songs this long at least, and for a quarter more than the headers
// say: frames past it count as past the end.
constexpr double kShortestIndexSeconds = 600;
// How often an idle worker looks at the play head again.
constexpr auto kIdlePoll = std::chrono::milliseconds(3);

} // namespace

// The cache: kSlots chunks of kChunkFrames, and an index from chunk number to slot.
//
// Eviction protocol between the worker (the only writer) and the audio thread (the only
// reader), without locks. The reader loads index[c] = s, sets slots[s].inUse, and loads
// index[c] again: only if it still names s does it copy. The writer, to reuse slot s, first
// stores index[c] = -1, then waits until slots[s].inUse is clear. All four accesses are
// sequentially consistent, so either the reader sees -1 on its second look (and plays
// silence), or the writer sees inUse set and waits for the copy to end.
struct Track::State {
    struct Slot {
        std::unique_ptr<float[]> samples;
        std::int64_t chunk = -1;
        std::atomic<bool> inUse{false};
    };

    std::filesystem::path path;
    int sampleRate = 0;
    std::unique_ptr<audio::Decoder> decoder;
    std::int64_t decoderPosition = 0;
    std::vector<Slot> slots;
    std::unique_ptr<std::atomic<int>[]> index;
    std::int64_t indexChunks = 0;
    std::int64_t estimate = 0;
    std::atomic<std::int64_t> exactFrames{-1};
    // Nothing lies at or past this frame: a read from there gave nothing. The exact end is
    // then found by reading the chunk before.
    std::atomic<std::int64_t> endBound{std::numeric_limits<std::int64_t>::max()};
    mutable std::mutex errorMutex;
    std::optional<Error> error;

    std::atomic<std::int64_t> playhead{0};
    std::atomic<std::int64_t> keep{-1};
    std::atomic<bool> stopping{false};
    std::thread worker;

    [[nodiscard]] std::int64_t lastChunk() const {
        const std::int64_t exact = exactFrames.load();
        const std::int64_t frames = exact >= 0 ? exact : std::min(indexChunks * kChunkFrames, endBound.load());
        return std::min(indexChunks, (frames + kChunkFrames - 1) / kChunkFrames) - 1;
    }

    [[nodiscard]] bool isCached(std::int64_t chunk) const { return index[static_cast<std::size_t>(chunk)].load() >= 0; }

    // The chunks to hold, nearest first: ahead of the play head, then behind it, then around
    // the kept place.
    void wanted(std::vector<std::int64_t>& out) const {
        out.clear();
        const std::int64_t last = lastChunk();
        const auto behind = static_cast<std::int64_t>(kKeepBehindSeconds * sampleRate) / kChunkFrames + 1;
        const std::int64_t keepAt = keep.load();
        const std::int64_t keepChunks = keepAt >= 0 ? 2 : 0;
        const auto ahead = static_cast<std::int64_t>(slots.size()) - behind - keepChunks;
        const std::int64_t head =
            std::clamp<std::int64_t>(playhead.load() / kChunkFrames, 0, std::max<std::int64_t>(last, 0));
        const auto add = [&](std::int64_t chunk) {
            if (chunk >= 0 && chunk <= last && std::find(out.begin(), out.end(), chunk) == out.end())
                out.push_back(chunk);
        };
        for (std::int64_t chunk = head; chunk < head + ahead; ++chunk)
            add(chunk);
        for (std::int64_t chunk = head - 1; chunk >= head - behind; --chunk)
            add(chunk);
        for (std::int64_t chunk = keepAt / kChunkFrames; keepAt >= 0 && chunk < keepAt / kChunkFrames + keepChunks;
             ++chunk)
            add(chunk);
    }

    void run() {
        std::vector<std::int64_t> want;
        std::vector<float> buffer(kChunkSamples);
        while (!stopping.load()) {
            wanted(want);
            const auto missing = std::find_if(want.begin(), want.end(), [&](std::int64_t c) { return !isCached(c); });
            if (missing == want.end()) {
                std::this_thread::sleep_for(kIdlePoll);
                continue;
            }
            const std::int64_t chunk = *missing;
            if (decode(chunk, buffer.data()) > 0)
                store(chunk, buffer.data(), want);
        }
    }

    // Decodes chunk `chunk` into `out`; fewer frames than a chunk at the end.
    std::size_t decode(std::int64_t chunk, float* out) {
        const std::int64_t start = chunk * kChunkFrames;
        if (decoderPosition != start) {
            if (auto sought = decoder->seek(start); !sought) {
                finish(start, sought.error());
                return 0;
            }
            decoderPosition = start;
        }
        const std::size_t frames = decoder->read(out, kChunkFrames);
        decoderPosition += static_cast<std::int64_t>(frames);
        std::fill(out + frames * audio::kChannels, out + kChunkSamples, 0.0f);
        if (frames == 0 && start > 0) {
            // Past the end (a seek beyond it): the end is right here when the chunk before was
            // read whole, else somewhere in the chunks before, which are read next.
            if (isCached(chunk - 1))
                finish(start, decoder->error());
            else
                endBound.store(std::min(endBound.load(), start));
        } else if (frames < static_cast<std::size_t>(kChunkFrames) || chunk == indexChunks - 1 ||
                   decoderPosition == endBound.load()) {
            finish(decoderPosition, decoder->error());
        }
        return frames;
    }

    void finish(std::int64_t frames, const std::optional<Error>& why) {
        if (exactFrames.load() < 0 || frames < exactFrames.load())
            exactFrames.store(frames);
        if (why) {
            std::lock_guard lock(errorMutex);
            error = why;
        }
    }

    void store(std::int64_t chunk, const float* samples, const std::vector<std::int64_t>& want) {
        Slot& slot = freeSlot(want);
        if (slot.chunk >= 0) {
            index[static_cast<std::size_t>(slot.chunk)].store(-1);
            while (slot.inUse.load())
                std::this_thread::yield();
        }
        std::memcpy(slot.samples.get(), samples, kChunkSamples * sizeof(float));
        slot.chunk = chunk;
        index[static_cast<std::size_t>(chunk)].store(static_cast<int>(&slot - slots.data()));
    }

    // An empty slot, else the one whose chunk is farthest down the wanted list or not on it.
    Slot& freeSlot(const std::vector<std::int64_t>& want) {
        Slot* best = nullptr;
        std::size_t bestRank = 0;
        for (Slot& slot : slots) {
            if (slot.chunk < 0)
                return slot;
            const auto found = std::find(want.begin(), want.end(), slot.chunk);
            const auto rank = static_cast<std::size_t>(found - want.begin());
            if (best == nullptr || rank > bestRank) {
                best = &slot;
                bestRank = rank;
            }
        }
        return *best;
    }
};

Track::Track(std::unique_ptr<State> state)
    : m_state(std::move(state)) {}

Track::~Track() {
    m_state->stopping.store(true);
    if (m_state->worker.joinable())
        m_state->worker.join();
}

Expected<std::shared_ptr<Track>> Track::open(const std::filesystem::path& path, int sampleRate) {
    auto opened = audio::Decoder::open(path, sampleRate);
    if (!opened)
        return std::move(opened).error();
    std::unique_ptr<audio::Decoder> decoder = std::move(opened).value();
    auto state = std::make_unique<State>();
    state->path = path;
    state->sampleRate = sampleRate;
    state->estimate = decoder->estimatedFrames();
    const auto shortest = static_cast<std::int64_t>(kShortestIndexSeconds * sampleRate);
    const std::int64_t indexFrames = std::max(shortest, state->estimate + state->estimate / 4);
    state->indexChunks = indexFrames / kChunkFrames + 1;
    state->index = std::make_unique<std::atomic<int>[]>(static_cast<std::size_t>(state->indexChunks));
    for (std::int64_t chunk = 0; chunk < state->indexChunks; ++chunk)
        state->index[static_cast<std::size_t>(chunk)].store(-1);
    const auto slotCount = static_cast<std::size_t>(kCacheSeconds * sampleRate / kChunkFrames) + 1;
    state->slots = std::vector<State::Slot>(slotCount);
    for (State::Slot& slot : state->slots)
        slot.samples = std::make_unique<float[]>(kChunkSamples);
    state->decoder = std::move(decoder);
    State* raw = state.get();
    auto track = std::shared_ptr<Track>(new Track(std::move(state)));
    raw->worker = std::thread([raw] { raw->run(); });
    return track;
}

const std::filesystem::path& Track::path() const {
    return m_state->path;
}

int Track::sampleRate() const {
    return m_state->sampleRate;
}

std::int64_t Track::frameCount() const {
    const std::int64_t exact = m_state->exactFrames.load();
    return exact >= 0 ? exact : m_state->estimate;
}

bool Track::isExact() const {
    return m_state->exactFrames.load() >= 0;
}

std::optional<Error> Track::error() const {
    std::lock_guard lock(m_state->errorMutex);
    return m_state->error;
}

bool Track::read(std::int64_t start, float* out, std::size_t frames) noexcept {
    State& state = *m_state;
    bool complete = true;
    const std::int64_t exact = state.exactFrames.load(std::memory_order_relaxed);
    std::size_t done = 0;
    while (done < frames) {
        const std::int64_t frame = start + static_cast<std::int64_t>(done);
        const std::int64_t chunk = frame >= 0 ? frame / kChunkFrames : -1;
        const std::size_t offset = frame >= 0 ? static_cast<std::size_t>(frame % kChunkFrames) : 0;
        std::size_t count = std::min(frames - done, static_cast<std::size_t>(kChunkFrames) - offset);
        if (frame < 0)
            count = std::min(frames - done, static_cast<std::size_t>(-frame));
        float* target = out + done * audio::kChannels;
        const bool outside = frame < 0 || chunk >= state.indexChunks || (exact >= 0 && frame >= exact);
        bool copied = false;
        if (!outside) {
            std::atomic<int>& entry = state.index[static_cast<std::size_t>(chunk)];
            const int slotIndex = entry.load();
            if (slotIndex >= 0) {
                State::Slot& slot = state.slots[static_cast<std::size_t>(slotIndex)];
                slot.inUse.store(true);
                if (entry.load() == slotIndex) {
                    std::memcpy(target, slot.samples.get() + offset * audio::kChannels,
                                count * audio::kChannels * sizeof(float));
                    copied = true;
                }
                slot.inUse.store(false);
            }
            complete = complete && copied;
        }
        if (!copied)
            std::memset(target, 0, count * audio::kChannels * sizeof(float));
        done += count;
    }
    return complete;
}

void Track::setPlayhead(std::int64_t frame, std::int64_t keep) noexcept {
    m_state->playhead.store(std::max<std::int64_t>(0, frame), std::memory_order_relaxed);
    m_state->keep.store(keep, std::memory_order_relaxed);
}

bool Track::waitUntilReadable(std::int64_t start, std::size_t frames, std::chrono::milliseconds timeout) {
    State& state = *m_state;
    // Offline there is no audio thread to say where the play head went: the wait says it.
    state.playhead.store(std::max<std::int64_t>(0, start));
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const std::int64_t first = std::max<std::int64_t>(0, start) / kChunkFrames;
    const std::int64_t last = (std::max<std::int64_t>(0, start) + static_cast<std::int64_t>(frames) - 1) / kChunkFrames;
    for (;;) {
        bool ready = true;
        for (std::int64_t chunk = first; chunk <= last && ready; ++chunk)
            ready = chunk > state.lastChunk() || state.isCached(chunk);
        if (ready)
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

} // namespace vexo::sound

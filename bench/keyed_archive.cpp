// Keyed-archive codec against a bare libplist binary-plist write and parse of the same
// dictionary, measured in the same run. Prints each of our figures as a ratio to its floor.
//
//   build/bench/bench_keyed_archive [--benchmark_min_time=0.5s] [--benchmark_repetitions=5]
#include <cstdio>
#include <map>
#include <string>

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include "platform/plist/KeyedArchiver.h"
#include "platform/plist/KeyedUnarchiver.h"

using namespace vexo::plist;

namespace {

Value deckStatus() {
    return Value(Dictionary{
        {"playing", Value(true)},
        {"currentTime", Value(183)},
        {"currentDisplayTime", Value("3:03")},
        {"autoLoopBeatInterval", Value(0.25f)},
        {"looping", Value(false)},
        {"fxName", Value("Echo")},
        {"fxEnabled", Value(true)},
        {"fxLowPassEnabled", Value(false)},
        {"fxHighPassEnabled", Value(true)},
        {"bpm", Value(128)},
        {"key", Value("8A")},
        {"turntable", Value(1)},
    });
}

Value songInformation() {
    Data artwork(30 * 1024);
    for (std::size_t i = 0; i < artwork.size(); ++i)
        artwork[i] = static_cast<std::uint8_t>((i * 2654435761u) >> 13);
    return Value(Dictionary{{"currentSong", Value(Dictionary{
                                                {"songID", Value("9F3A61C2D4E5B607")},
                                                {"name", Value("Midnight Drive")},
                                                {"artist", Value("The Night Shift")},
                                                {"duration", Value(245)},
                                                {"artworkImage", Value(std::move(artwork))},
                                            })}});
}

// The same dictionary as a libplist tree, built the way a bare libplist user would.
plist_t libplistTree(const Value& value) {
    switch (value.type()) {
    case Value::Type::Dictionary: {
        plist_t dictionary = plist_new_dict();
        for (const auto& [key, element] : *value.asDictionary())
            plist_dict_set_item(dictionary, key.c_str(), libplistTree(element));
        return dictionary;
    }
    case Value::Type::String:
        return plist_new_string(value.asString()->c_str());
    case Value::Type::Integer:
        return plist_new_uint(value.asInteger()->bits);
    case Value::Type::Real:
        return plist_new_real(value.asReal()->value);
    case Value::Type::Boolean:
        return plist_new_bool(*value.asBoolean());
    case Value::Type::Data:
        return plist_new_data(reinterpret_cast<const char*>(value.asData()->data()), value.asData()->size());
    default:
        return plist_new_string("");
    }
}

void oursEncode(benchmark::State& state, const Value& message) {
    for (auto _ : state)
        benchmark::DoNotOptimize(KeyedArchiver::archivedData(message));
}

void oursDecode(benchmark::State& state, const Value& message) {
    const Data bytes = *KeyedArchiver::archivedData(message);
    for (auto _ : state)
        benchmark::DoNotOptimize(KeyedUnarchiver::unarchive(bytes));
    state.counters["bytes"] = static_cast<double>(bytes.size());
}

void libplistWrite(benchmark::State& state, const Value& message) {
    for (auto _ : state) {
        plist_t tree = libplistTree(message);
        char* bytes = nullptr;
        std::uint32_t length = 0;
        plist_to_bin(tree, &bytes, &length);
        benchmark::DoNotOptimize(bytes);
        plist_to_bin_free(bytes);
        plist_free(tree);
    }
}

void libplistParse(benchmark::State& state, const Value& message) {
    plist_t tree = libplistTree(message);
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(tree, &bytes, &length);
    plist_free(tree);
    for (auto _ : state) {
        plist_t parsed = nullptr;
        plist_from_bin(bytes, length, &parsed);
        benchmark::DoNotOptimize(parsed);
        plist_free(parsed);
    }
    plist_to_bin_free(bytes);
    state.counters["bytes"] = length;
}

// Remembers each benchmark's CPU time per iteration so that ratios can be printed at the end.
// CPU time rather than wall time: on a machine shared with builds, time spent waiting for a
// core is neither ours nor the floor's. With --benchmark_repetitions the median is used.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median")
                continue;
            m_nanoseconds[run.run_name.function_name] = run.GetAdjustedCPUTime();
        }
    }

    void printRatios() const {
        std::printf("\n%-28s %14s %14s %8s\n", "keyed archive vs libplist", "ours (CPU ns)", "floor (CPU ns)", "ratio");
        for (const char* message : {"deck_status", "song_info_30KB"}) {
            printRatio(std::string("encode ") + message, std::string("ours_encode/") + message,
                       std::string("libplist_write/") + message);
            printRatio(std::string("decode ") + message, std::string("ours_decode/") + message,
                       std::string("libplist_parse/") + message);
        }
        std::printf("goal: ratio at most 1.5\n");
    }

private:
    void printRatio(const std::string& label, const std::string& ours, const std::string& floor) const {
        const auto o = m_nanoseconds.find(ours);
        const auto f = m_nanoseconds.find(floor);
        if (o == m_nanoseconds.end() || f == m_nanoseconds.end())
            return;
        std::printf("%-28s %14.0f %14.0f %8.2f\n", label.c_str(), o->second, f->second, o->second / f->second);
    }

    std::map<std::string, double> m_nanoseconds;
};

} // namespace

int main(int argc, char** argv) {
    static const Value status = deckStatus();
    static const Value song = songInformation();
    for (const auto& [name, message] : {std::pair{"deck_status", &status}, std::pair{"song_info_30KB", &song}}) {
        const Value* m = message;
        benchmark::RegisterBenchmark((std::string("ours_encode/") + name).c_str(),
                                     [m](benchmark::State& s) { oursEncode(s, *m); });
        benchmark::RegisterBenchmark((std::string("libplist_write/") + name).c_str(),
                                     [m](benchmark::State& s) { libplistWrite(s, *m); });
        benchmark::RegisterBenchmark((std::string("ours_decode/") + name).c_str(),
                                     [m](benchmark::State& s) { oursDecode(s, *m); });
        benchmark::RegisterBenchmark((std::string("libplist_parse/") + name).c_str(),
                                     [m](benchmark::State& s) { libplistParse(s, *m); });
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    return 0;
}

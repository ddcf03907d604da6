// SPDX-License-Identifier: Apache-2.0
// The parser and a whole boot, each against a floor measured in the same
// process and interleaved with it: reading the same files whole and inserting
// the same, already split pairs into a PropertyMap. Inputs come from
// gen_tree.py (scripts/bench.sh): zelva_bench --data=DIR [benchmark flags].
// Counters: floor_ns (mean floor), ratio (subject time over floor time); the
// boot adds peak_heap (peak of live heap bytes during the boot, malloc's
// rounding included), handed (key and value bytes of every batch) and heap_ratio.
// zelva_bench --parser_file=PATH times the parser alone on PATH instead.

#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <android-base/logging.h>
#include <android-base/strings.h>
#include <benchmark/benchmark.h>

#include "IInitExtensionProperty.h"
#include "sandbox.h"
#include "utils.h"

namespace {
std::atomic<int64_t> gLiveHeap{0};
std::atomic<int64_t> gPeakHeap{0};
}  // namespace

// Every operator-new block counts, the static library's included. Not inlined:
// GCC would then see free() meet a pointer from operator new.
__attribute__((noinline)) void* operator new(size_t size) {
    void* p = malloc(size != 0 ? size : 1);
    if (p == nullptr) throw std::bad_alloc();
    const int64_t bytes = malloc_usable_size(p);
    const int64_t live = gLiveHeap.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    int64_t peak = gPeakHeap.load(std::memory_order_relaxed);
    while (live > peak && !gPeakHeap.compare_exchange_weak(peak, live)) {
    }
    return p;
}

__attribute__((noinline)) void operator delete(void* p) noexcept {
    if (p != nullptr) gLiveHeap.fetch_sub(malloc_usable_size(p), std::memory_order_relaxed);
    free(p);
}

void operator delete(void* p, size_t) noexcept {
    operator delete(p);
}

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;
std::string gDataDir;

// CPU time of this thread: the machine is shared, and time spent preempted by
// other processes would land on whichever side was running. Everything timed
// runs on this thread and reads from the page cache, so it never sleeps.
int64_t NowNs() {
    timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * int64_t{1000000000} + ts.tv_nsec;
}

void NoLogger(android::base::LogId, android::base::LogSeverity, const char*, const char*, unsigned,
              const char*) {}

// The floor's reader: open, fstat, read whole into a buffer of the file's size.
std::string ReadWhole(const char* path) {
    std::string content;
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) return content;
    struct stat st;
    if (fstat(fd, &st) == 0) content.resize(st.st_size);
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = read(fd, &content[done], content.size() - done);
        if (n <= 0) break;
        done += n;
    }
    content.resize(done);
    close(fd);
    return content;
}

// name=value lines trimmed as the parser trims them; comments, and lines
// without '=' (imports), give nothing.
Pairs SplitPairs(const std::string& text) {
    Pairs pairs;
    for (const std::string& raw : android::base::Split(text, "\n")) {
        const std::string line = android::base::Trim(raw);
        const size_t eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
        pairs.emplace_back(android::base::Trim(line.substr(0, eq)),
                           android::base::Trim(line.substr(eq + 1)));
    }
    return pairs;
}

void SetRatioCounters(benchmark::State& state, int64_t subject_ns, int64_t floor_ns) {
    state.counters["floor_ns"] = static_cast<double>(floor_ns) / state.iterations();
    state.counters["ratio"] = static_cast<double>(subject_ns) / floor_ns;
}

void BM_Parser(benchmark::State& state) {
    const std::string path = gDataDir + "/parser/lines_" + std::to_string(state.range(0)) + ".prop";
    const Pairs pairs = SplitPairs(ReadWhole(path.c_str()));
    if (pairs.empty()) return state.SkipWithError(("no input " + path).c_str());
    android::base::SetLogger(NoLogger);
    int64_t subject_ns = 0, floor_ns = 0, n = 0;
    for (auto _ : state) {
        PropertyMap parsed, floor;
        int64_t subject = 0;
        // Alternate which goes first, so that neither always meets warm caches.
        const bool subject_first = n++ % 2 == 0;
        for (int turn = 0; turn < 2; ++turn) {
            const int64_t start = NowNs();
            if ((turn == 0) == subject_first) {
                load_properties_from_file_without_se(path.c_str(), nullptr, &parsed);
                subject = NowNs() - start;
            } else {
                benchmark::DoNotOptimize(ReadWhole(path.c_str()));
                for (const auto& [name, value] : pairs) floor.emplace(name, value);
                floor_ns += NowNs() - start;
            }
        }
        if (parsed.size() != pairs.size()) return state.SkipWithError("parser lost lines");
        subject_ns += subject;
        state.SetIterationTime(subject / 1e9);
    }
    SetRatioCounters(state, subject_ns, floor_ns);
}

// What init has set by these boot points; the company date differs from its
// backup, so the company hand-over runs.
const sandbox::PropertyMap kBootProperties = {
        {"sys.cotaimg.verify", "1"},
        {"sys.cota.load.properties", "/mnt/cota/carrier"},
        {"persist.sys.zelva.operator.opta", "VDF"},
        {"persist.sys.zelva.operator.optb", "DE"},
        {"persist.sys.channel.info", "amazon"},
        {"ro.zelva.image.my_company.date", "20240601"},
        {"persist.sys.zelva.company.ota.version.backup", "20231101"},
        {"dev.mnt.blk.userdata", "sda"},
        {"ro.vendor.zelva.version_suffix", "EEA"},
        {"ro.build.display.id", "PHB110_14.0.0.600(EX01)"}};

// Files the boot reads whole without its parser: the old NV flag and the data
// partition's size (market name).
const char* const kOtherReads[] = {"/mnt/vendor/zelvareserve/radio/exp_operator_switch.config",
                                   "/sys/block/sda/size"};

// A file the boot reads, in boot order; files of one step share a floor map.
struct FileRead {
    std::string path, step;
    Pairs pairs;
};

size_t BatchBytes(const PropertyMap& map) {
    size_t bytes = 0;
    for (const auto& [name, value] : map) bytes += name.size() + value.size();
    return bytes;
}

// Slots 4, 6, 7, 8 and 9 as init calls them; returns the bytes handed over.
size_t Boot(const std::function<void(const char*)>& step) {
    size_t handed = 0;
    const android::init::PropertySink sink = [&](int, PropertyMap map) {
        handed += BatchBytes(map);
    };
    step("factory");
    auto* object = QRAV_FETCH_IInitExtensionProperty("libzelvaextproperty.so");
    step("slot4");
    PropertyMap map;
    object->loadExtensionPartitionProperties(&map);
    sink(0, std::move(map));
    step("slot6");
    object->loadPersistOverrideProperties(sink);
    step("slot7");
    object->loadCotaOverrideProperties(sink);
    step("slot8");
    object->loadNightjarOverrideProperties(sink);
    step("slot9");
    object->loadSimSwitchOverrideProperties(sink);
    return handed;
}

// Every file the boot reads, from a VERBOSE run: the parser logs each file it
// loaded, the single-property reader each lookup.
std::vector<FileRead> TraceBoot(const sandbox::ScratchRoot& root, std::string* error) {
    sandbox::Options options;
    options.properties = kBootProperties;
    options.min_severity = android::base::VERBOSE;
    options.capture_tree = false;
    const sandbox::Outcome outcome = sandbox::Run(root, options, [](sandbox::Context& ctx) {
        Boot([&](const char* step) { ctx.SetStep(step); });
    });
    std::vector<FileRead> reads;
    if (!outcome.Completed()) {
        *error = "traced boot: " + outcome.Describe();
        return reads;
    }
    for (const char* path : kOtherReads) reads.push_back({path, "slot6", {}});
    const std::string parsed = "(Loading properties from ", single = "Loading property from ";
    for (const sandbox::LogRecord& log : outcome.logs) {
        const std::string& m = log.message;
        if (android::base::StartsWith(m, parsed)) {
            const std::string path = m.substr(parsed.size(), m.find(" took ") - parsed.size());
            reads.push_back({path, log.step, SplitPairs(ReadWhole(root.HostPath(path).c_str()))});
        } else if (android::base::StartsWith(m, single)) {
            const size_t end = std::min(m.find(": ", single.size()), m.find(" failed "));
            reads.push_back({m.substr(single.size(), end - single.size()), log.step, {}});
        }
    }
    return reads;
}

void ReadAndInsert(const std::vector<FileRead>& reads) {
    PropertyMap map;
    for (size_t i = 0; i < reads.size(); ++i) {
        if (i > 0 && reads[i].step != reads[i - 1].step) map.clear();
        benchmark::DoNotOptimize(ReadWhole(reads[i].path.c_str()));
        for (const auto& [name, value] : reads[i].pairs) map.insert_or_assign(name, value);
    }
}

void BM_Boot(benchmark::State& state) {
    // One scratch root per scale, reused: the tree holds every key in its
    // final form, so a boot changes nothing (checked through the bytes handed).
    static std::map<int64_t,
                    std::pair<std::unique_ptr<sandbox::ScratchRoot>, std::vector<FileRead>>>
            inputs;
    auto& [root, reads] = inputs[state.range(0)];
    std::string error;
    if (!root) {
        const std::string dir = gDataDir + "/scale" + std::to_string(state.range(0));
        root = sandbox::ScratchRoot::Create(sandbox::DeviceTree().CopyFrom(dir), &error);
        if (root) reads = TraceBoot(*root, &error);
    }
    if (reads.empty()) return state.SkipWithError(("no boot input: " + error).c_str());

    sandbox::Options options;
    options.properties = kBootProperties;
    options.capture_tree = false;
    int64_t boot_ns = 0, floor_ns = 0, peak_heap = 0, handed = 0, n = 0;
    for (auto _ : state) {
        const bool boot_first = n++ % 2 == 0;
        // Times are taken in the child, so that fork and sandbox setup don't count.
        sandbox::Outcome outcome = sandbox::Run(*root, options, [&](sandbox::Context& ctx) {
            android::base::SetLogger(NoLogger);
            int64_t boot = 0, floor = 0, peak = 0;
            size_t bytes = 0;
            for (int turn = 0; turn < 2; ++turn) {
                const int64_t base = gLiveHeap.load();
                gPeakHeap.store(base);
                const int64_t start = NowNs();
                if ((turn == 0) == boot_first) {
                    bytes = Boot([](const char*) {});
                    boot = NowNs() - start;
                    peak = gPeakHeap.load() - base;
                } else {
                    ReadAndInsert(reads);
                    floor = NowNs() - start;
                }
            }
            ctx.Note("run", std::to_string(boot) + " " + std::to_string(floor) + " " +
                                    std::to_string(peak) + " " + std::to_string(bytes));
        });
        long long boot, floor, peak, bytes;
        if (sscanf(outcome.notes["run"].c_str(), "%lld %lld %lld %lld", &boot, &floor, &peak,
                   &bytes) != 4) {
            return state.SkipWithError(outcome.Describe().c_str());
        }
        if (handed != 0 && handed != bytes) return state.SkipWithError("the tree changed");
        handed = bytes;
        boot_ns += boot;
        floor_ns += floor;
        peak_heap = std::max<int64_t>(peak_heap, peak);
        state.SetIterationTime(boot / 1e9);
    }
    SetRatioCounters(state, boot_ns, floor_ns);
    state.counters["peak_heap"] = static_cast<double>(peak_heap);
    state.counters["handed"] = static_cast<double>(handed);
    state.counters["heap_ratio"] = static_cast<double>(peak_heap) / handed;
}

// The parser alone on one file (--parser_file=PATH): the floor that
// bench/sim_bench.py holds the simulator's boot of a tree with that file to.
std::string gParserFile;

void BM_ParserFile(benchmark::State& state) {
    android::base::SetLogger(NoLogger);
    size_t lines = 0;
    for (auto _ : state) {
        PropertyMap parsed;
        const int64_t start = NowNs();
        if (!load_properties_from_file_without_se(gParserFile.c_str(), nullptr, &parsed)) {
            return state.SkipWithError(("cannot read " + gParserFile).c_str());
        }
        state.SetIterationTime((NowNs() - start) / 1e9);
        lines = parsed.size();
    }
    state.counters["properties"] = static_cast<double>(lines);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (android::base::StartsWith(argv[i], "--data=")) gDataDir = argv[i] + strlen("--data=");
        if (android::base::StartsWith(argv[i], "--parser_file=")) {
            gParserFile = argv[i] + strlen("--parser_file=");
        }
    }
    if (!gParserFile.empty()) {
        benchmark::RegisterBenchmark("parser/file", BM_ParserFile)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        return 0;
    }
    if (gDataDir.empty()) {
        fprintf(stderr, "usage: %s --data=DIR (from bench/gen_tree.py) [flags]\n", argv[0]);
        return 2;
    }
    benchmark::RegisterBenchmark("parser", BM_Parser)
            ->Arg(1000)
            ->Arg(10000)
            ->Arg(100000)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    std::string reason;
    if (sandbox::Available(&reason)) {
        benchmark::RegisterBenchmark("boot/scale", BM_Boot)
                ->Arg(1)
                ->Arg(10)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
    } else {
        fprintf(stderr, "boot benchmarks skipped: %s\n", reason.c_str());
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

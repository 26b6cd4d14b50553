// The main loop's longest stall while 4K screenshots are copied: a heartbeat
// every millisecond on the real poll loop measures how late it runs while the
// store takes a new screenshot every quarter second as the app does: submitted,
// its hash and blob made on the image worker, then its thumbnail. The same
// heartbeat first runs as long on the idle loop: on a shared machine the
// scheduler alone makes stalls of several milliseconds, and the two phases side
// by side tell ours from its. The loop thread's own CPU time between two
// heartbeats is the work we put on it, whatever the scheduler did. Prints each
// phase's three worst stalls, their 99th percentile and the longest work
// between two heartbeats, and how long the submits themselves held the loop.
//
//   build/bench/capture_stall [copies]      (default 20)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <vector>

#include "foundation/PollMainLoop.h"
#include "foundation/Worker.h"
#include "library/ClipStore.h"
#include "support/Images.h"

namespace tamarind {
namespace {

using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration duration) { return std::chrono::duration<double, std::milli>(duration).count(); }

double threadCpuMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// How late each heartbeat ran, and the loop thread's CPU time since the one before, in ms.
struct Beats {
    std::vector<double> lateness;
    std::vector<double> work;
};

int run(int copies) {
    auto folder = std::filesystem::temp_directory_path() / "tamarind-stall-bench";
    std::filesystem::remove_all(folder);
    // Distinct screenshots, made before the clock starts: a column wider each, so no two hash alike.
    std::vector<Data> screenshots;
    for (int i = 0; i < copies; ++i) screenshots.push_back(makeScreenshotLikePng(3840 + i, 2160));
    std::fprintf(stderr, "%d screenshots of about %.1f MB each\n", copies,
                 static_cast<double>(screenshots.front().size()) / 1e6);

    PollMainLoop loop;
    ThreadWorker worker;
    ClipStore store(loop, openStores(folder), BlobStore(folder / "blobs"), "BENCH", {}, &worker);

    Beats idle, copying;
    Beats* beats = &idle;
    double cpuBefore = threadCpuMilliseconds();
    std::vector<double> submits;   // how long each submit held the loop
    Clock::time_point expected = Clock::now();
    TaskHandle heartbeat;
    std::function<void()> beat = [&] {
        Clock::time_point now = Clock::now();
        double cpu = threadCpuMilliseconds();
        beats->lateness.push_back(std::max(0.0, milliseconds(now - expected)));
        beats->work.push_back(cpu - cpuBefore);
        cpuBefore = cpu;
        expected = now + std::chrono::milliseconds(1);
        heartbeat = loop.postDelayed(std::chrono::milliseconds(1), beat);
    };
    heartbeat = loop.postDelayed(std::chrono::milliseconds(1), beat);

    int next = 0, waits = 0;
    long long startRevision = store.revision().value();
    TaskHandle copyTask;
    std::function<void()> copy = [&] {
        if (next == copies) {
            // Each insert and each thumbnail's attach is one save; the run ends when all are in, or
            // after half a minute.
            if (store.revision().value() - startRevision >= 2LL * copies || ++waits > 300) return loop.quit();
            copyTask = loop.postDelayed(std::chrono::milliseconds(100), copy);
            return;
        }
        PasteboardSnapshot snapshot;
        snapshot.types = {"image/png"};
        snapshot.imageData = screenshots[static_cast<std::size_t>(next++)];
        snapshot.imagePixelSize = PixelSize{3840, 2160};
        snapshot.capturedAt = loop.clock().wallNow();
        Clock::time_point started = Clock::now();
        store.submit(std::move(snapshot), {}, [&, copy = next](const IngestResult& result) {
            if (result.kind == IngestResult::Kind::inserted) return;
            std::fprintf(stderr, "copy %d was not stored: %s\n", copy, result.description().c_str());
            std::exit(1);
        });
        submits.push_back(milliseconds(Clock::now() - started));
        copyTask = loop.postDelayed(std::chrono::milliseconds(250), copy);
    };
    auto idleTime = std::chrono::milliseconds(250 * copies + 1000);
    copyTask = loop.postDelayed(idleTime, [&] {
        beats = &copying;
        copy();
    });
    loop.run();

    long long thumbnails = 0;
    for (const Clip& clip : store.fetchPage(0, {}, ClipSortOrder::newest, copies))
        if (store.clip(clip.id)->thumbnailData) ++thumbnails;
    std::sort(submits.rbegin(), submits.rend());
    std::printf("copies: %d, thumbnails attached: %lld\n", copies, thumbnails);
    for (auto [name, phase] : {std::pair{"idle loop", &idle}, std::pair{"copying", &copying}}) {
        std::vector<double>& late = phase->lateness;
        std::sort(late.rbegin(), late.rend());
        std::printf("%-9s  longest stall %.2f ms (then %.2f, %.2f), 99th percentile %.2f ms; longest work between "
                    "heartbeats %.2f ms; %zu heartbeats\n",
                    name, late[0], late[1], late[2], late[late.size() / 100],
                    *std::max_element(phase->work.begin(), phase->work.end()), late.size());
    }
    std::printf("submit on the loop: longest %.2f ms, median %.2f ms\n", submits.front(),
                submits[submits.size() / 2]);
    std::filesystem::remove_all(folder);
    return thumbnails == copies ? 0 : 1;
}

}  // namespace
}  // namespace tamarind

int main(int argc, char** argv) { return tamarind::run(argc > 1 ? std::atoi(argv[1]) : 20); }

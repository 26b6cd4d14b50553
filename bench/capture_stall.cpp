// The main loop's longest stall while 4K screenshots are copied: a heartbeat
// every millisecond on the real poll loop measures how late it runs while the
// store takes a new screenshot every quarter second as the app does: submitted,
// its hash and blob made on the image worker, then its thumbnail. Prints the
// three worst stalls and how long the submits themselves held the loop.
//
//   build/bench/capture_stall [copies]      (default 20)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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

    std::vector<double> lateness;  // how late each heartbeat ran, in ms
    std::vector<double> submits;   // how long each submit held the loop
    Clock::time_point expected = Clock::now();
    TaskHandle heartbeat;
    std::function<void()> beat = [&] {
        Clock::time_point now = Clock::now();
        lateness.push_back(std::max(0.0, milliseconds(now - expected)));
        expected = now + std::chrono::milliseconds(1);
        heartbeat = loop.postDelayed(std::chrono::milliseconds(1), beat);
    };
    heartbeat = loop.postDelayed(std::chrono::milliseconds(1), beat);

    int next = 0, waits = 0;
    long long startRevision = store.revision().value();
    TaskHandle copying;
    std::function<void()> copy = [&] {
        if (next == copies) {
            // Each insert and each thumbnail's attach is one save; the run ends when all are in, or
            // after half a minute.
            if (store.revision().value() - startRevision >= 2LL * copies || ++waits > 300) return loop.quit();
            copying = loop.postDelayed(std::chrono::milliseconds(100), copy);
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
        copying = loop.postDelayed(std::chrono::milliseconds(250), copy);
    };
    copying = loop.postDelayed(std::chrono::milliseconds(100), copy);
    loop.run();

    long long thumbnails = 0;
    for (const Clip& clip : store.fetchPage(0, {}, ClipSortOrder::newest, copies))
        if (store.clip(clip.id)->thumbnailData) ++thumbnails;
    std::sort(lateness.rbegin(), lateness.rend());
    std::sort(submits.rbegin(), submits.rend());
    std::printf("copies: %d, thumbnails attached: %lld\n", copies, thumbnails);
    std::printf("longest stall of the loop: %.2f ms (then %.2f, %.2f; %zu heartbeats)\n", lateness[0], lateness[1],
                lateness[2], lateness.size());
    std::printf("submit on the loop: longest %.2f ms, median %.2f ms\n", submits.front(),
                submits[submits.size() / 2]);
    std::filesystem::remove_all(folder);
    return thumbnails == copies ? 0 : 1;
}

}  // namespace
}  // namespace tamarind

int main(int argc, char** argv) { return tamarind::run(argc > 1 ? std::atoi(argv[1]) : 20); }

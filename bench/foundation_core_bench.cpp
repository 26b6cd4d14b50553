// Costs of the foundation's hot paths: the main loop's queue, content hashing,
// identifiers and dates.

#include <benchmark/benchmark.h>

#include "foundation/Date.h"
#include "foundation/Sha256.h"
#include "foundation/TaskQueue.h"
#include "foundation/Uuid.h"

namespace tamarind {
namespace {

// Post N tasks at spread deadlines, then run them all: the heap's cost per task.
void BM_TaskQueuePostAndRun(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    std::int64_t sum = 0;
    for (auto _ : state) {
        TaskQueue queue;
        MonotonicTime start{};
        for (int i = 0; i < count; ++i)
            queue.push(start + std::chrono::milliseconds((i * 7919) % 1000), [&sum, i] { sum += i; });
        queue.runDue(start + std::chrono::seconds(1));
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_TaskQueuePostAndRun)->Arg(1000)->Arg(100000);

// The debouncer's pattern: arm, cancel, arm again, as every keystroke in a search field does.
void BM_TaskQueueArmAndCancel(benchmark::State& state) {
    TaskQueue queue;
    MonotonicTime now{};
    for (auto _ : state) {
        TaskHandle handle(queue.push(now + std::chrono::milliseconds(150), [] {}));
        handle.cancel();
    }
    queue.runDue(now + std::chrono::seconds(1));
}
BENCHMARK(BM_TaskQueueArmAndCancel);

void BM_Sha256(benchmark::State& state) {
    std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) benchmark::DoNotOptimize(sha256Hex(text));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Sha256)->Arg(64)->Arg(1 << 20);

void BM_UuidRandomToString(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(Uuid::random().uuidString());
}
BENCHMARK(BM_UuidRandomToString);

void BM_DateIso8601RoundTrip(benchmark::State& state) {
    Date date = Date::fromReferenceSeconds(817000000.123456789);
    for (auto _ : state) benchmark::DoNotOptimize(Date::parseIso8601(date.iso8601()));
}
BENCHMARK(BM_DateIso8601RoundTrip);

}  // namespace
}  // namespace tamarind

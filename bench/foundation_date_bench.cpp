#include <benchmark/benchmark.h>

#include "foundation/Date.h"

namespace tamarind {
namespace {

void BM_DateIso8601RoundTrip(benchmark::State& state) {
    Date date = Date::fromReferenceSeconds(817000000.123456789);
    for (auto _ : state) benchmark::DoNotOptimize(Date::parseIso8601(date.iso8601()));
}
BENCHMARK(BM_DateIso8601RoundTrip);

}  // namespace
}  // namespace tamarind

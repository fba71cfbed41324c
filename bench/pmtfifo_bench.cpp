/* Hand-over of pointers between two threads, which every queued server command pays twice:
 * a stream from one writer to one reader, and a round trip.  Two-thread figures on two
 * cores drift by three: run under `taskset -c 0` as well. */
#include <benchmark/benchmark.h>

#include <semaphore>

#include "bench/queues.h"

namespace {

constexpr int kBatch = 20000;  // items of one measured stream

/* Items are counted from the writer's first push to the reader's last pop. */
template <class Queue>
void BM_Stream(benchmark::State &state) {
  Queue queue(static_cast<int>(state.range(0)));
  std::binary_semaphore received(0);
  int item = 0;
  std::thread reader([&] {
    for (int n = 1; queue.pop() != nullptr; ++n) {
      if (n % kBatch == 0) received.release();
    }
  });
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) queue.push(&item);
    received.acquire();
  }
  queue.push(nullptr);
  reader.join();
  state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class Queue>
void BM_RoundTrip(benchmark::State &state) {
  Queue there(10), back(10);
  int item = 0;
  std::thread echo([&] {
    for (void *got = there.pop(); got != nullptr; got = there.pop()) back.push(got);
  });
  for (auto _ : state) {
    there.push(&item);
    benchmark::DoNotOptimize(back.pop());
  }
  there.push(nullptr);
  echo.join();
}

void capacities(benchmark::internal::Benchmark *bench) {
  bench->ArgName("capacity")->Arg(10)->Arg(1024)->Arg(0)->UseRealTime()->MinTime(0.2);
}

BENCHMARK(BM_Stream<FifoQueue>)->Apply(capacities);
BENCHMARK(BM_Stream<TbbQueue>)->Apply(capacities);
BENCHMARK(BM_Stream<LockfreeQueue>)->Apply(capacities);
BENCHMARK(BM_Stream<MutexQueue>)->Apply(capacities);
BENCHMARK(BM_RoundTrip<FifoQueue>)->UseRealTime()->MinTime(0.2);
BENCHMARK(BM_RoundTrip<TbbQueue>)->UseRealTime()->MinTime(0.2);
BENCHMARK(BM_RoundTrip<LockfreeQueue>)->UseRealTime()->MinTime(0.2);
BENCHMARK(BM_RoundTrip<MutexQueue>)->UseRealTime()->MinTime(0.2);

}  // namespace

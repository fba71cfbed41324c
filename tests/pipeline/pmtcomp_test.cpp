/* Computations in lock-step rely on every worker having finished before the next step
 * begins: a step that returns early, or a binding that did not change, gives wrong numbers
 * without any error. */
#include "pipeline/pmtcomp.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <barrier>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "pipeline/internal/pmtcomp_record.h"
#include "platform/clock/clock.h"
#include "tests/pipeline/fifo_test_support.h"

namespace {

struct CompDestroy {
  void operator()(Pmtcomp *comp) const { pmtcomp_destroy(comp); }
};
using CompHandle = std::unique_ptr<Pmtcomp, CompDestroy>;

/* What a worker was called with, last. */
struct Call {
  long function = 0;
  void *arg1 = nullptr;
  long arg2 = 0, index = -1;
  double start_time = 0;
  std::thread::id thread;
};

template <long kFunction>
long note(void *arg1, long arg2, void *arg3, PmtcompThread *self, double start_time) {
  *static_cast<Call *>(arg3) = Call{kFunction,  arg1,
                                    arg2,       pmtcomp_thread_index(self),
                                    start_time, std::this_thread::get_id()};
  return 0;
}

long give_arg2(void *, long arg2, void *, PmtcompThread *, double) { return arg2; }

TEST(Pmtcomp, CountsTheWorkersThatSucceeded) {
  const CompHandle comp(pmtcomp_create());
  EXPECT_EQ(pmtcomp_processthreads(comp.get()), 0);
  for (const long result : {0, -1, 5}) {
    ASSERT_EQ(pmtcomp_addthread(comp.get(), give_arg2, nullptr, result, nullptr), 0);
  }
  EXPECT_EQ(pmtcomp_nthreads(comp.get()), 3);
  EXPECT_EQ(pmtcomp_processthreads(comp.get()), 2);
  EXPECT_EQ(pmtcomp_processthreads(comp.get()), 2);
}

TEST(Pmtcomp, WorkersKeepTheirThreadsAndHearWhenTheStepBegan) {
  const CompHandle comp(pmtcomp_create());
  std::vector<Call> calls(2);
  for (Call &call : calls) pmtcomp_addthread(comp.get(), note<1>, nullptr, 0, &call);
  const double before = std_now();
  pmtcomp_processthreads(comp.get());
  const std::vector<Call> first = calls;
  pmtcomp_processthreads(comp.get());
  EXPECT_NE(calls[0].thread, calls[1].thread);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(calls[i].thread, first[i].thread);
    EXPECT_NE(calls[i].thread, std::this_thread::get_id());
    EXPECT_EQ(calls[i].index, static_cast<long>(i));
    EXPECT_GE(first[i].start_time, before);
    EXPECT_GE(calls[i].start_time, first[i].start_time);
    EXPECT_LE(calls[i].start_time, std_now());
  }
}

TEST(Pmtcomp, WorkersRunAtTheSameTime) {
  const CompHandle comp(pmtcomp_create());
  std::barrier<> meeting(3);  // passed by nobody before all have come
  const auto meet = [](void *arg1, long, void *, PmtcompThread *, double) -> long {
    static_cast<std::barrier<> *>(arg1)->arrive_and_wait();
    return 0;
  };
  for (int i = 0; i < 3; ++i) {
    pmtcomp_addthread(comp.get(), meet, &meeting, 0, nullptr);
  }
  EXPECT_EQ(pmtcomp_processthreads(comp.get()), 3);
}

/* Each worker adds what its neighbour held after the step before, as a grid of cells does:
 * a step that overlapped the next would spoil all later sums. */
struct Ring {
  std::vector<std::uint64_t> now, next;
};
long add_neighbour(void *arg1, long arg2, void *, PmtcompThread *self, double) {
  Ring &ring = *static_cast<Ring *>(arg1);
  const auto i = static_cast<std::size_t>(pmtcomp_thread_index(self));
  const std::size_t size = ring.now.size();
  for (volatile long spin = (arg2 + 7 * pmtcomp_thread_index(self)) % 50; spin > 0;) {
    spin = spin - 1;
  }
  ring.next[i] = ring.now[i] * 3 + ring.now[(i + 1) % size];
  return 0;
}

TEST(Pmtcomp, EveryStepSeesTheWholeOfTheStepBefore) {
  constexpr std::size_t kWorkers = 4;
  Ring ring{{1, 2, 3, 4}, std::vector<std::uint64_t>(kWorkers)};
  std::vector<std::uint64_t> model = ring.now;
  const CompHandle comp(pmtcomp_create());
  for (std::size_t i = 0; i < kWorkers; ++i) {
    pmtcomp_addthread(comp.get(), add_neighbour, &ring, 1, nullptr);
  }
  for (long step = 1; step <= 10000; ++step) {
    pmtcomp_setthread(comp.get(), step % 4, nullptr, &ring, step, nullptr);
    ASSERT_EQ(pmtcomp_processthreads(comp.get()), 4);
    std::swap(ring.now, ring.next);
    const std::vector<std::uint64_t> old = model;
    for (std::size_t i = 0; i < kWorkers; ++i) {
      model[i] = old[i] * 3 + old[(i + 1) % kWorkers];
    }
    ASSERT_EQ(ring.now, model) << "step " << step;
  }
}

TEST(PmtcompSetthread, ReplacesWhatItsRulesAllow) {
  Call call, other;
  int before = 0, after = 0;
  const CompHandle comp(pmtcomp_create());
  pmtcomp_addthread(comp.get(), note<1>, &before, 7, &call);
  const auto bound_to = [&](long function, void *arg1, long arg2, const Call &noted) {
    EXPECT_EQ(pmtcomp_processthreads(comp.get()), 1);
    EXPECT_EQ(noted.function, function);
    EXPECT_EQ(noted.arg1, arg1);
    EXPECT_EQ(noted.arg2, arg2);
  };
  void *const negative = reinterpret_cast<void *>(std::intptr_t{-1});
  ASSERT_EQ(pmtcomp_setthread(comp.get(), 0, nullptr, negative, 0, nullptr), 0);
  bound_to(1, &before, 7, call);
  ASSERT_EQ(pmtcomp_setthread(comp.get(), 0, note<2>, &after, -3, nullptr), 0);
  bound_to(2, &after, 7, call);
  ASSERT_EQ(pmtcomp_setthread(comp.get(), 0, nullptr, nullptr, 1, &other), 0);
  bound_to(2, nullptr, 1, other);
}

TEST(PmtcompDeletethread, MovesLaterThreadsDown) {
  std::vector<Call> calls(4);
  const CompHandle comp(pmtcomp_create());
  for (std::size_t i = 0; i < calls.size(); ++i) {
    pmtcomp_addthread(comp.get(), note<1>, nullptr, static_cast<long>(i) + 1,
                      &calls[i]);
  }
  const auto indexes_called = [&] {
    for (Call &call : calls) call.index = -1;
    pmtcomp_processthreads(comp.get());
    std::vector<long> indexes;
    for (const Call &call : calls) indexes.push_back(call.index);
    return indexes;
  };
  EXPECT_EQ(pmtcomp_deletethread(comp.get(), 0), 0);
  EXPECT_EQ(indexes_called(), std::vector<long>({-1, 1, 2, 3}));
  EXPECT_EQ(pmtcomp_deletethread(comp.get(), 1), 0);
  EXPECT_EQ(indexes_called(), std::vector<long>({-1, 1, -1, 3}))
      << "workers keep the index that they were added with";
  EXPECT_EQ(pmtcomp_deletethread(comp.get(), 1), 0);
  EXPECT_EQ(indexes_called(), std::vector<long>({-1, 1, -1, -1}));
  EXPECT_EQ(pmtcomp_nthreads(comp.get()), 1);
  pmtcomp_addthread(comp.get(), note<1>, nullptr, 1, &calls[0]);
  EXPECT_EQ(indexes_called(), std::vector<long>({1, 1, -1, -1}));
}

TEST(PmtcompDeletethread, RefusesIndexesOutOfRange) {
  const CompHandle comp(pmtcomp_create());
  pmtcomp_addthread(comp.get(), give_arg2, nullptr, 0, nullptr);
  elog_clear_register(0);
  EXPECT_EQ(pmtcomp_deletethread(comp.get(), 1), -1);
  EXPECT_EQ(pmtcomp_deletethread(comp.get(), -1), -1);
  EXPECT_EQ(pmtcomp_setthread(comp.get(), 1, nullptr, nullptr, 0, nullptr), -1);
  EXPECT_EQ(taken_messages(),
            "pmtcomp_deletethread: thread index 1 out of range.\n"
            "pmtcomp_deletethread: thread index -1 out of range.\n"
            "pmtcomp_setthread: thread index 1 out of range.\n");
  EXPECT_EQ(pmtcomp_nthreads(comp.get()), 1);
}

TEST(PmtcompDestroy, EndsWorkersThatNeverRanAndThoseThatJustDid) {
  for (int round = 0; round < 100; ++round) {
    CompHandle comp(pmtcomp_create());
    for (int i = 0; i < 3; ++i) {
      pmtcomp_addthread(comp.get(), give_arg2, nullptr, 0, nullptr);
    }
    const bool step = round % 2 == 0;
    EXPECT_EQ(step ? pmtcomp_processthreads(comp.get()) : 3, 3);
    EXPECT_EQ(round % 3 == 0 ? pmtcomp_deletethread(comp.get(), 2) : 0, 0);
  }
}

/* The lines of a text after the number of the thread, which is checked. */
std::vector<std::string> events_of(const std::string &text) {
  std::vector<std::string> events;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t number = line.find(": ") + 2;
    const std::size_t event = line.find(": ", number) + 2;
    EXPECT_NE(std::stoul(line.substr(number)), 0UL) << line;
    events.push_back(line.substr(0, number) + line.substr(event));
  }
  return events;
}

std::string output_of_two_steps(int verbosity) {
  testing::internal::CaptureStdout();
  ksutil::comp_verbosity = verbosity;
  const CompHandle comp(pmtcomp_create());
  pmtcomp_addthread(comp.get(), give_arg2, nullptr, 0, nullptr);
  pmtcomp_processthreads(comp.get());
  pmtcomp_processthreads(comp.get());
  pmtcomp_deletethread(comp.get(), 0);
  ksutil::comp_verbosity = 0;
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(PmtcompVerbosity, TellsStepsAtOneAndEventsAboveIt) {
  EXPECT_EQ(output_of_two_steps(0), "");
  std::vector<std::string> steps = events_of(output_of_two_steps(1));
  ASSERT_EQ(steps.size(), 4u);
  EXPECT_EQ(steps[0], "pmtcomp_runthread: Starting thread");
  for (std::size_t i : {1u, 2u}) {
    EXPECT_TRUE(steps[i].starts_with("pmtcomp_runthread: comp_sub in 0.")) << steps[i];
  }
  EXPECT_EQ(steps[3], "pmtcomp_runthread: Exiting thread");

  const std::vector<std::string> events = events_of(output_of_two_steps(2));
  const auto in_order = [&](const std::string &function,
                            const std::vector<std::string> &expected) {
    auto at = events.begin();
    for (const std::string &event : expected) {
      at = std::find(at, events.end(), function + ": " + event);
      ASSERT_NE(at, events.end()) << event << " is missing, or comes too early";
    }
  };
  in_order("pmtcomp_runthread",
           {"Starting thread", "waiting for start lock", "obtained start lock",
            "releasing start lock", "start lock released", "waiting for finish lock",
            "obtained finish lock", "signaling finish", "releasing finish",
            "finish lock released", "waiting for start lock", "start lock released",
            "finish lock released", "Exiting thread"});
  in_order("pmtcomp_deletethread",
           {"obtaining start lock", "start lock obtained", "signaling start (1, 1)",
            "releasing start lock", "start lock released", "joining", "thread joined"});
  /* Whether a worker has to wait for its start depends on who comes first. */
  for (const std::string &event : events) {
    if (event.find("waiting for start (") != std::string::npos) {
      EXPECT_EQ(event, "pmtcomp_runthread: waiting for start (0, 0)");
    }
  }
}

TEST(PmtcompFailure, TellsTheSizesOfTheRecords) {
  elog_clear_register(0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtcomp_create(), nullptr);
  EXPECT_TRUE(
      taken_messages().starts_with("pmtcomp_create: malloc (Pmtcomp,80) error\n"));
  ks_test_fail_alloc(2);
  EXPECT_EQ(pmtcomp_create(), nullptr);
  EXPECT_EQ(taken_messages(), "pmtcomp_create: newtbl(mtc->threads) error.\n");
  const CompHandle comp(pmtcomp_create());
  ks_test_fail_alloc(1);
  EXPECT_EQ(pmtcomp_addthread(comp.get(), give_arg2, nullptr, 0, nullptr), -1);
  EXPECT_TRUE(taken_messages().starts_with(
      "pmtcomp_addthread: malloc(PmtcompThead,240) error.\n"));
  EXPECT_EQ(pmtcomp_addthread(comp.get(), nullptr, nullptr, 0, nullptr), -1);
  EXPECT_EQ(taken_messages(), "pmtcomp_addthread: comp_sub must be given.\n");
  EXPECT_EQ(pmtcomp_nthreads(comp.get()), 0);
}

TEST(PmtcompFailure, ANullComponentHasNoThreads) {
  EXPECT_EQ(pmtcomp_nthreads(nullptr), 0);
  EXPECT_EQ(pmtcomp_processthreads(nullptr), 0);
  EXPECT_EQ(pmtcomp_destroy(nullptr), 0);
  EXPECT_EQ(pmtcomp_addthread(nullptr, give_arg2, nullptr, 0, nullptr), -1);
  EXPECT_EQ(pmtcomp_setthread(nullptr, 0, nullptr, nullptr, 0, nullptr), -1);
  EXPECT_EQ(pmtcomp_deletethread(nullptr, 0), -1);
  elog_clear_register(0);
}

#if !defined(__SANITIZE_THREAD__)
/* Fails to add a thread, and ends with 2 when that went differently; else by the alarm,
 * because the component stays locked. */
void add_then_wait(const char *message) {
  Pmtcomp *const comp = pmtcomp_create();
  elog_clear_register(0);
  if (message == std::string("pmtcomp_addthread: settbl(threads) error.\n")) {
    ks_test_fail_alloc(2);  // the record, then the list
  } else {
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 46);
    pthread_setattr_default_np(&huge);
  }
  if (pmtcomp_addthread(comp, give_arg2, nullptr, 0, nullptr) != -1 ||
      !taken_messages().starts_with(message)) {
    _exit(2);
  }
  alarm(1);
  pmtcomp_processthreads(comp);
  _exit(3);
}

TEST(PmtcompFailure, ToStartAThreadLeavesTheComponentLocked) {
  EXPECT_EXIT(add_then_wait("pmtcomp_addthread: settbl(threads) error.\n"),
              testing::KilledBySignal(SIGALRM), "");
  EXPECT_EXIT(add_then_wait("pmtcomp_addthread: pthread_create() error.\n"),
              testing::KilledBySignal(SIGALRM), "");
}
#endif

}  // namespace

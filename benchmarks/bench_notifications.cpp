// SPDX-License-Identifier: MIT
// What does a post to n observers cost beside the bare loop over n functions?
#include <KMVDriveLibrary/NotificationCenter.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

namespace {

using kmv::Notification;
using kmv::NotificationCenter;
using Clock = std::chrono::steady_clock;

const Notification kNotification{"kDiskArbiterNewDiskDictionary", {}, nullptr};

std::vector<std::function<void(const Notification&)>> makeFunctions(std::size_t count, std::size_t& calls) {
  std::vector<std::function<void(const Notification&)>> functions;
  for (std::size_t i = 0; i < count; ++i) {
    functions.emplace_back([&calls](const Notification&) { benchmark::DoNotOptimize(++calls); });
  }
  return functions;
}

std::vector<NotificationCenter::Registration> observe(NotificationCenter& center, std::size_t count,
                                                      std::size_t& calls) {
  std::vector<NotificationCenter::Registration> registrations;
  for (auto& function : makeFunctions(count, calls)) {
    registrations.push_back(center.addObserver(kNotification.name, std::move(function)));
  }
  return registrations;
}

void Loop(benchmark::State& state) {
  std::size_t calls = 0;
  const auto functions = makeFunctions(static_cast<std::size_t>(state.range(0)), calls);
  for (auto _ : state) {
    for (const auto& function : functions) function(kNotification);
  }
}
BENCHMARK(Loop)->Arg(1)->Arg(10)->Arg(1000);

void Post(benchmark::State& state) {
  NotificationCenter center;
  std::size_t calls = 0;
  const auto registrations = observe(center, static_cast<std::size_t>(state.range(0)), calls);
  for (auto _ : state) center.post(kNotification);
}
BENCHMARK(Post)->Arg(1)->Arg(10)->Arg(1000);

/// Both in turn within one run, so that a busy machine slows both: the counter `ratio` is post / loop.
void PostBesideLoop(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::size_t rounds = 20'000 / count + 1;
  NotificationCenter center;
  std::size_t calls = 0;
  const auto functions = makeFunctions(count, calls);
  const auto registrations = observe(center, count, calls);
  std::chrono::duration<double> loop{0};
  std::chrono::duration<double> post{0};
  for (auto _ : state) {
    const auto start = Clock::now();
    for (std::size_t i = 0; i < rounds; ++i) {
      for (const auto& function : functions) function(kNotification);
    }
    const auto middle = Clock::now();
    for (std::size_t i = 0; i < rounds; ++i) center.post(kNotification);
    loop += middle - start;
    post += Clock::now() - middle;
  }
  state.counters["ratio"] = post / loop;
}
BENCHMARK(PostBesideLoop)->Arg(1)->Arg(10)->Arg(1000);

}  // namespace

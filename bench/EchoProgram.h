#pragma once

#include "bench/Echo.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <span>
#include <string>

namespace bench {

/// The main function of a program that measures echoes, and, in the processes that it starts of
/// itself, serves them. `add` registers the benchmarks.
int runEchoProgram(int argc, char** argv, std::span<const Echo> echoes,
                   const std::function<void()>& add);

/// Adds a benchmark of the echo to the cell, whose name ends in a slash.
void addEcho(const std::string& cell, const Echo& echo,
             const std::function<void(benchmark::State&)>& measure);

/// Serves the echo in another process, and keeps `window` requests in flight: each is sent again as
/// soon as it is answered. One iteration is one answer.
void measureEcho(benchmark::State& state, const Echo& echo, const std::string& url, int window,
                 int sources);

} // namespace bench

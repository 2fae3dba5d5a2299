// What is thrown around the library, in each tier, costs the request that it belongs to and nothing
// else; what reaches the executor's loop ends the loop and nothing else.

#include "ScenarioRun.h"

namespace {

class Failures : public testing::TestWithParam<Scenario> {};

const Scenario kScenarios[] = {
    {.name = "handler", .work = "A! A A2! A"},
    {.name = "handler and a stop at once", .work = "A! A2!", .ending = Ending::atOnce},
    {.name = "handler of a temporary worker", .work = "A! B A", .maxPoolSize = 0},
    {.name = "timer", .work = "T! A", .maxPoolSize = 1},
    {.name = "interceptors before", .work = "A! A A2!", .fault = Fault::before},
    {.name = "interceptors after", .work = "A! A A2!", .fault = Fault::after},
    {.name = "initialisation", .work = "A A B", .fault = Fault::initialise},
    {.name = "publisher", .work = "A! A A2!", .fault = Fault::publisher},
    {.name = "publisher and a stop at once",
     .work = "A! A2!",
     .ending = Ending::atOnce,
     .fault = Fault::publisher},
    {.name = "logger", .work = "A! A2", .fault = Fault::logger},
    {.name = "logger and a timer", .work = "T!", .fault = Fault::logger},
    {.name = "logger and a stop at once",
     .work = "A! A2",
     .ending = Ending::atOnce,
     .fault = Fault::logger},
    {.name = "handler on the executor's thread", .work = "A! A T! A", .multiThreaded = false},
    {.name = "interceptors on the executor's thread",
     .work = "A! A",
     .fault = Fault::before,
     .multiThreaded = false},
};

} // namespace

TEST_P(Failures, Hold) { exploreScenario(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, Failures, testing::ValuesIn(kScenarios), rowName<Scenario>);

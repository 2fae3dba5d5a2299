// Requests of one channel run one at a time and in the order in which they were read, beside those
// of other channels.

#include "ScenarioRun.h"

namespace {

class Order : public testing::TestWithParam<Scenario> {};

const Scenario kScenarios[] = {
    {.name = "three requests", .work = "A A A", .reaches = {"held back"}},
    {.name = "three requests and a stop at once",
     .work = "A A A",
     .ending = Ending::atOnce,
     .reaches = {"held back to the end"}},
    {.name = "two channels five requests", .work = "A B A B A", .ending = Ending::answered},
    {.name = "two channels five requests and a stop at once",
     .work = "A B A B A",
     .ending = Ending::atOnce},
    {.name = "temporary workers", .work = "A B A B", .maxPoolSize = 0},
    {.name = "temporary workers and a stop at once",
     .work = "A B A B",
     .maxPoolSize = 0,
     .ending = Ending::atOnce},
    {.name = "one reusable worker", .work = "A B A B", .maxPoolSize = 1},
    {.name = "one reusable worker and a stop at once",
     .work = "A B A B",
     .maxPoolSize = 1,
     .ending = Ending::atOnce},
    {.name = "timers between requests", .work = "A T A T2"},
    {.name = "timers between requests and a stop at once",
     .work = "A T A",
     .maxPoolSize = 1,
     .ending = Ending::atOnce},
    {.name = "single threaded", .work = "A T A B", .multiThreaded = false},
    {.name = "single threaded, its thread ended by a request",
     .work = "A A# A",
     .multiThreaded = false},
    {.name = "single threaded, its thread ended by a timer",
     .work = "A T# A",
     .multiThreaded = false},
};

} // namespace

TEST_P(Order, Holds) { exploreScenario(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, Order, testing::ValuesIn(kScenarios), rowName<Scenario>);

// A channel passes from one worker to another when the priority of its requests changes, also when
// the other one cannot be had, or the first one has lost its thread.

#include "ScenarioRun.h"

namespace {

class HandOver : public testing::TestWithParam<Scenario> {};

const std::vector<std::string> kRefused{"refused to the executor", "refused to a worker"};

const Scenario kScenarios[] = {
    {.name = "another priority", .work = "A A2 A", .reaches = {"held back"}},
    {.name = "another priority and a stop at once",
     .work = "A A2 A",
     .ending = Ending::atOnce,
     .reaches = {"held back to the end"}},
    {.name = "another priority, temporary workers", .work = "A A2 A", .maxPoolSize = 0},
    {.name = "another priority refused",
     .work = "A A2 A",
     .fault = Fault::refusal,
     .reaches = kRefused},
    {.name = "another priority refused and a stop at once",
     .work = "A A2 A2",
     .ending = Ending::atOnce,
     .fault = Fault::refusal,
     .reaches = kRefused},
    {.name = "another priority without a thread",
     .work = "A A2 A",
     .fault = Fault::noThread,
     .reaches = kRefused},
    {.name = "another priority without a thread, one reusable worker",
     .work = "A A2 A0 A",
     .maxPoolSize = 1,
     .fault = Fault::noThread,
     .reaches = kRefused},
    {.name = "another priority without a thread and a stop at once",
     .work = "A A2 A",
     .maxPoolSize = 0,
     .ending = Ending::atOnce,
     .fault = Fault::noThread,
     .reaches = kRefused},
    {.name = "two channels change their priorities", .work = "A B A2 B2", .maxPoolSize = 1},
    {.name = "thread ended by a request", .work = "A# A A", .reaches = {"held back"}},
    {.name = "thread ended by a request and a stop at once",
     .work = "A# A A#",
     .maxPoolSize = 1,
     .ending = Ending::atOnce},
    {.name = "thread ended by a request of a temporary worker",
     .work = "A# A A2#",
     .maxPoolSize = 0},
    {.name = "thread ended by a request and no other one",
     .work = "A# A A",
     .fault = Fault::noThread},
    {.name = "thread ended by a request and no other one and a stop at once",
     .work = "A# A A2",
     .ending = Ending::atOnce,
     .fault = Fault::noThread},
    {.name = "thread ended by a timer", .work = "T# A A", .maxPoolSize = 1},
};

} // namespace

TEST_P(HandOver, Holds) { exploreScenario(GetParam()); }

INSTANTIATE_TEST_SUITE_P(, HandOver, testing::ValuesIn(kScenarios), rowName<Scenario>);

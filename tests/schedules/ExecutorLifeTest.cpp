// The executor's start and end, in every order of its thread and the host's.

#include "ScenarioRun.h"
#include "simulated/Simulation.h"

using namespace mirel::simulated;

namespace {

struct Life : Scenario {
    void (*body)(ScenarioRun& run); ///< sends work of its own where the scenario's is empty
};

void PrintTo(const Life& life, std::ostream* out) { *out << life.name; }

class ExecutorLife : public testing::TestWithParam<Life> {};

void serve(ScenarioRun& run) {
    run.begin();
    run.stop();
}

/// One executor ends, and then another one has the pool, whose workers may not be back yet.
void endAndServe(ScenarioRun& run) {
    run.begin();
    run.endExecutor();
    serve(run);
}

const Life kLives[] = {
    {{.name = "never started", .work = ""},
     [](ScenarioRun& run) {
         run.makeExecutor();
         require(!run.executor().hasStarted(), "started without a thread");
         run.stop();
     }},
    {{.name = "shut down before the start", .work = ""},
     [](ScenarioRun& run) {
         run.makeExecutor();
         run.send("A");
         run.executor().shutdown();
         run.start();
         run.stop();
     }},
    {{.name = "shut down in the first read", .work = ""},
     [](ScenarioRun& run) {
         run.makeExecutor();
         run.start();
         waitUntil([&] { return run.executor().hasStarted(); }, "the start of the loop");
         run.stop();
     }},
    {{.name = "shut down at once", .work = ""},
     [](ScenarioRun& run) {
         run.makeExecutor();
         run.start();
         run.send("A A");
         run.stop();
     }},
    {{.name = "shut down during dispatch",
      .work = "A A",
      .ending = Ending::anytime,
      .reaches = {"held back to the end"}},
     &serve},
    {{.name = "shut down twice", .work = "A A2", .ending = Ending::anytime},
     [](ScenarioRun& run) {
         run.begin();
         run.executor().shutdown();
         run.stop();
     }},
    {{.name = "single threaded and shut down during dispatch",
      .work = "A T A B",
      .ending = Ending::anytime,
      .multiThreaded = false},
     &serve},
    {{.name = "many held back to the end",
      .work = "A A A A",
      .ending = Ending::atOnce,
      .reaches = {"held back to the end"}},
     &serve},
    {{.name = "pool shut down and the executor goes on",
      .work = "A A A2",
      .ending = Ending::atOnce,
      .reaches = {"dropped with the pool"}},
     [](ScenarioRun& run) {
         run.begin();
         run.shutDownPool();
         run.send("A2 A");
         run.awaitRest();
         run.stop();
     }},
    {{.name = "ended while its pool goes on",
      .work = "A A2",
      .ending = Ending::anytime,
      .reaches = {"held back to the end"}},
     &endAndServe},
    {{.name = "ended with temporary workers while its pool goes on",
      .work = "A B A",
      .maxPoolSize = 0,
      .ending = Ending::atOnce},
     &endAndServe},
    {{.name = "ended when everything is answered while its pool goes on",
      .work = "A B",
      .ending = Ending::answered},
     &endAndServe},
    {{.name = "ended with a failure while its pool goes on",
      .work = "A A2",
      .ending = Ending::atOnce,
      .fault = Fault::logger},
     [](ScenarioRun& run) {
         run.begin();
         run.endExecutor();
     }},
    {{.name = "two executors one after the other on a pool", .work = "A T2", .maxPoolSize = 1},
     [](ScenarioRun& run) {
         serve(run);
         serve(run);
     }},
    {{.name = "two executors on a pool, each stopped at once",
      .work = "A A2",
      .maxPoolSize = 1,
      .ending = Ending::atOnce},
     [](ScenarioRun& run) {
         serve(run);
         serve(run);
     }},
};

} // namespace

TEST_P(ExecutorLife, Holds) {
    const Life& life = GetParam();
    exploreScenario(
        life.name,
        [&life] {
            ScenarioRun run(life);
            life.body(run);
        },
        life.reaches);
}

INSTANTIATE_TEST_SUITE_P(, ExecutorLife, testing::ValuesIn(kLives), rowName<Life>);

// The executor's start and end, in every order of its thread and the host's.

#include "World.h"
#include "simulated/Simulation.h"

using namespace mirel::simulated;

namespace {

struct Life : Scenario {
    void (*body)(World& world, const Scenario& scenario);
};

void PrintTo(const Life& life, std::ostream* out) { *out << life.name; }

class ExecutorLife : public testing::TestWithParam<Life> {};

void serve(World& world, const Scenario& scenario) {
    world.makeExecutor();
    world.send(scenario.work);
    world.start();
    world.await();
    world.stop();
}

/// One executor ends, and then another one has the pool, whose workers may not be back yet.
void endAndServe(World& world, const Scenario& scenario) {
    world.makeExecutor();
    world.send(scenario.work);
    world.start();
    world.await();
    world.endExecutor();
    serve(world, scenario);
}

const Life kLives[] = {
    {{.name = "never started", .work = ""},
     [](World& world, const Scenario&) {
         world.makeExecutor();
         require(!world.executor().hasStarted(), "started without a thread");
         world.stop();
     }},
    {{.name = "shut down before the start", .work = "A"},
     [](World& world, const Scenario& scenario) {
         world.makeExecutor();
         world.send(scenario.work);
         world.executor().shutdown();
         world.start();
         world.stop();
     }},
    {{.name = "shut down in the first read", .work = ""},
     [](World& world, const Scenario&) {
         world.makeExecutor();
         world.start();
         waitUntil([&] { return world.executor().hasStarted(); }, "the start of the loop");
         world.stop();
     }},
    {{.name = "shut down at once", .work = "A A"},
     [](World& world, const Scenario& scenario) {
         world.makeExecutor();
         world.start();
         world.send(scenario.work);
         world.stop();
     }},
    {{.name = "shut down during dispatch",
      .work = "A A",
      .ending = Ending::anytime,
      .reaches = {"held back to the end"}},
     &serve},
    {{.name = "shut down twice", .work = "A A2", .ending = Ending::anytime},
     [](World& world, const Scenario& scenario) {
         world.makeExecutor();
         world.send(scenario.work);
         world.start();
         world.await();
         world.executor().shutdown();
         world.stop();
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
     [](World& world, const Scenario& scenario) {
         world.makeExecutor();
         world.send(scenario.work);
         world.start();
         world.await();
         world.shutDownPool();
         world.send("A2 A");
         world.awaitRest();
         world.stop();
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
     [](World& world, const Scenario& scenario) {
         world.makeExecutor();
         world.send(scenario.work);
         world.start();
         world.await();
         world.endExecutor();
     }},
    {{.name = "two executors one after the other on a pool", .work = "A T2", .maxPoolSize = 1},
     [](World& world, const Scenario& scenario) {
         serve(world, scenario);
         serve(world, scenario);
     }},
    {{.name = "two executors on a pool, each stopped at once",
      .work = "A A2",
      .maxPoolSize = 1,
      .ending = Ending::atOnce},
     [](World& world, const Scenario& scenario) {
         serve(world, scenario);
         serve(world, scenario);
     }},
};

} // namespace

TEST_P(ExecutorLife, Holds) {
    const Life& life = GetParam();
    exploreScenario(
        life.name,
        [&life] {
            World world(life);
            life.body(world, life);
        },
        life.reaches);
}

INSTANTIATE_TEST_SUITE_P(, ExecutorLife, testing::ValuesIn(kLives), rowName<Life>);

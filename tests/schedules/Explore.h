#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// Explores one scenario; `body` is the body of each run. Prints one line about what was run.
///
/// As the environment variable MIREL_SCHEDULES says: "quick" (the default), within a fraction of a
/// second or a few; "full", within about a minute; "brief", a tenth of the quick ones, for builds
/// that look for something else than orders.
///
/// `reaches`: what at least one run must reach (see `reached`). If none does, the scenario fails:
/// it is not what its name says.
void exploreScenario(const std::string& name, const std::function<void()>& body,
                     const std::vector<std::string>& reaches = {});

/// To be called by a run when it reaches a state that the scenario is about.
void reached(const char* what);

/// GoogleTest's name of a row of a table: `row.name` with underscores.
template <typename Row>
std::string rowName(const testing::TestParamInfo<Row>& info) {
    std::string name = info.param.name;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    return name;
}

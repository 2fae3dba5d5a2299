#pragma once

#include "testkit/Process.h"
#include "tests/system/ChannelFixture.h"

namespace mirel {

/// mirel-call as the caller of a service that each test brings.
class ProgramsFixture : public ChannelFixture {
protected:
    Process::Result call(const Arguments& arguments, const std::string& input = "") const {
        return Process::run(joined({MIREL_CALL, "--channel", m_options.url}, arguments), input);
    }
};

} // namespace mirel

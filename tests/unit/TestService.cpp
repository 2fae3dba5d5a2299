// A service library as users write them, for the tests of the context that loads it.

#include "framework/Executable.h"
#include "runtime/values/ServiceContext.h"

class Echo : public Executable {
public:
    void timerEvent(int) override {}
};

extern "C" Executable* makeEcho(mirel::ServiceSetup& setup) {
    setup.context.addHandler<Echo>(setup.interface, "text", [](Echo&, std::string_view data) {
        return std::string(data.rbegin(), data.rend());
    });
    return new Echo;
}

extern "C" Executable* makeNothing(mirel::ServiceSetup&) { return nullptr; }

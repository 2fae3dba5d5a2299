#include "Command.h"
#include "Ledger.h"
#include "runtime/values/ServiceContext.h"

#include <memory>

/// What mirel-host calls to make the service. The context owns the result.
extern "C" Executable* createLedger(mirel::ServiceSetup& setup) {
    auto ledger = std::make_unique<Ledger>();
    setup.context.addHandler<Ledger>("Ledger", "text", &carryOut);
    return ledger.release();
}

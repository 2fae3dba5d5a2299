#pragma once

/// Base of what is shown to interceptors.
class InterceptionContext {
public:
    virtual ~InterceptionContext() {}
};

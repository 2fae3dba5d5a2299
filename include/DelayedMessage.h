#pragma once

#include "framework/MirelThreadPriority.h"

#include <string>

class Executable;
class Invoker;
class InvokerResponse;

/// One request that is held back because its source channel is busy. A plain record: copying it
/// copies the pointers, destroying it deletes none of them.
struct DelayedMessage {
    Invoker* invoker;
    Executable* executable; ///< the service object at the moment the request was held back
    std::string data;       ///< bytes; may contain NUL
    InvokerResponse* response;
    MirelThreadPriority priority; ///< of the worker that is to run the request
};

#pragma once

#include <stdexcept>

namespace mirel {

/// What a handler throws when it has done its work and the answer is no: an account without cover,
/// a name that is taken. The caller gets the text as a failure, and the host counts it as failed.
/// It is no fault of the service, so nothing is reported or logged.
class BusinessFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace mirel

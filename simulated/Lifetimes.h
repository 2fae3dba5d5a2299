#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

namespace mirel::simulated {

/// Which objects of the framework live, and which have been destroyed, in one run. Objects that
/// were made before the run are not known and taken to live.
class Lifetimes {
public:
    void born(const void* object, const char* kind);
    void died(const void* object);

    /// Null when the object may be used; otherwise what kind of object it was.
    const char* dead(const void* object) const;

    /// Such as "2 Semaphore, 1 Threadable"; empty when all objects of the run have been destroyed.
    std::string living() const;

private:
    struct Life {
        const char* kind;
        bool lives;
    };
    std::unordered_map<const void*, Life> m_lives;
};

} // namespace mirel::simulated

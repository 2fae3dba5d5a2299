#pragma once

namespace mirel {

/// Whether what runs now has failed: an exception is on its way, or the test says so. The objects
/// of the test kit ask when they are destroyed, and then leave behind what may tell why. A program
/// is linked with one of two answers: see CMakeLists.txt.
bool failed();

} // namespace mirel

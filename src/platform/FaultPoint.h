#pragma once

// Marks a place between two steps where a death matters: CORVALEN_FAULT("object.open.locked"). In a build
// with CORVALEN_FAULT_POINTS the process dies there when CORVALEN_DIE_AT names the point; in all others it is
// nothing.

#ifdef CORVALEN_FAULT_POINTS

namespace System::Platform {

/// Ends the process with SIGKILL if the environment's CORVALEN_DIE_AT is `name`, or "name:N" at the N-th
/// passage. With CORVALEN_FAULT_LIST the path of a file, a line with `name` is added to that file at every
/// passage.
void FaultPoint(char const* name);

}  // namespace System::Platform

#define CORVALEN_FAULT(name) ::System::Platform::FaultPoint(name)
#else
#define CORVALEN_FAULT(name) static_cast<void>(0)
#endif

#pragma once

namespace System::Platform {

/// Removes what killed owners have left in the directory of the inboxes, a bounded number of files at a time:
/// nobody else looks for the inbox of a thread that is gone. Called whenever an inbox is made.
void SweepDeadInboxes();

}  // namespace System::Platform

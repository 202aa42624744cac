#pragma once

namespace lumerix {

// Names the calling thread (shown by debuggers and profilers) and, where the
// platform has such a thing, gives it user-interactive priority: the poller's
// timing feeds straight into what the user sees.
void nameCurrentThread(const char* name, bool userInteractive = false);

}  // namespace lumerix

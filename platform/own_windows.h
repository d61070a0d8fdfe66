#pragma once
// The screens as shown, without our own windows: a compositor's picture of the
// desktop shows them, an X11 capture does not. Where ours stand, the merged
// image shows the other windows behind them, back to front, over black.

#include <vector>

#include "platform/window_server.h"

namespace pv {

// desktop: the compositor's picture of the screens, placed in window-server
// points at its scale; windows: the last list (frontmost first), ours with
// sharing state 0. Pictures of the others come from server.
void coverOwnWindows(WindowServer& server, WindowPicture& desktop, const std::vector<WindowListEntry>& windows);

}  // namespace pv

#pragma once
// The desktop application: tray item, main window, preferences, about and hot
// keys around one controller, on the X display.

namespace pv {

// Runs until Quit, a signal or the end of the session; returns the exit code.
int runTrayApp(int argc, char** argv);

}  // namespace pv

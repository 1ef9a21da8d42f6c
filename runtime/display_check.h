// Whether the program can open its windows at all, asked before anything else
// runs: without a display the window toolkit aborts the process, after the
// cameras were started and with nothing said that an operator could act on.
#pragma once

#include <string>

namespace boxdim {

// Empty when windows can be opened, else why not, in a few words. The X
// display is tried when the window toolkit would use it; a toolkit platform
// chosen through QT_QPA_PLATFORM (offscreen, wayland, vnc, ...) is trusted.
std::string display_problem();

}  // namespace boxdim

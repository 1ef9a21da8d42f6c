// The keyboard commands: one key per pass of the main loop, acting on every
// enumerated device in list order, open or not.
#pragma once

#include "app/session.h"

namespace boxdim {

constexpr int kEscKey = 27;

// Runs the command bound to `key` (ASCII, case-sensitive); other keys do
// nothing. Esc sets session.quit.
void dispatch_key(Session& session, int key);

}  // namespace boxdim

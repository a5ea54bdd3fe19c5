#pragma once

#include "control/Report.h"

namespace qz::control {

// Checks everything that the daemon and its clients need, and says of each fault what is wrong and which command mends
// it.  The status is that of the worst: BROKEN when there will be no pictures, TROUBLE when something is amiss.
// Changes nothing; takes a few seconds at most.
Report Examine();

} // namespace qz::control

#pragma once

// The two public headers, with their functions visible outside the library; everything else in it is hidden.  A source
// that defines such a function includes this one first.

#pragma GCC visibility push(default)
#include "xenc/simulator/simulator.h"
#include "xenc/xenc.h"
#pragma GCC visibility pop

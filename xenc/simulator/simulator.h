#pragma once

// Steers the simulator that stands in for the board's encoder library from within the same process.  What it shows, its
// control lines and how to steer it from outside is described in docs/simulator.md.
//
// Threads: any thread may call these.  Callbacks run on the simulator's own thread, one at a time, and may call
// everything but kt_uninit, which fails there, and xenc_sim_reset, which then does nothing.

extern "C" {

// Carries out one control line.  0 when it is wrong, which the library's log then explains.
int xenc_sim_control(const char* line);

// Returns once every callback queued before has been delivered or, by kt_uninit, dropped; at once in a callback.
void xenc_sim_flush(void);

// The calls since the last look, one per line as in C: "kt_md_setFps(15)".  Callback and user pointers are shown as
// "set" or "null".  Valid until the next look, so for one thread at a time.
const char* xenc_sim_take_calls(void);

// Back to the beginning: closed, no calls, no failures, normal pictures.  Not while another thread is in the library.
void xenc_sim_reset(void);

} // extern "C"

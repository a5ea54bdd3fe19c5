#pragma once

// Steers the simulator that stands in for the board's encoder library, in the same process.  The same
// operations are available from outside as text lines in the file or FIFO named by the environment variable
// XENC_CONTROL:
//
//     sys EVENT [PARAM]         fire a system event, by number or by its name in the log of the daemon
//     md EVENT [PARAM]          fire a media event
//     state STATE [PARAM]       report an encoder state, likewise
//     log LEVEL TEXT            write a library log line
//     fail FUNCTION [N]         make the next N calls (1) of a function fail
//     capture slow MS           delay every kt_md_capture; 0 ends it
//     capture truncate BYTES    write only that many bytes of every picture; -1 ends it
//     capture empty             write empty files, as truncate 0
//     capture normal            none of these
//     picture [PATH]            show other pictures; without a path the test card
//
// What the file or FIFO holds already is carried out inside kt_init, before its own result is decided; an
// event or a state is too early there, and lost.  After that, append to the file.
//
// The pictures are a test card of the simulator's own (1920 x 1080, turned by the rotation) or, with
// XENC_PICTURE, the JPEG file of that name or the files of that directory in turn, turned as well; a damaged
// one is delivered as it is.
//
// Threads: any thread may call these.  Callbacks run on the simulator's own thread, one at a time, and may
// call everything but kt_uninit, which fails there, and xenc_sim_reset, which then does nothing.

extern "C" {

// Carries out one control line as above.  0 when it is wrong, which the log of the library then explains.
int xenc_sim_control(const char* line);

// Returns once every callback queued before has been delivered or, by kt_uninit, dropped; at once in a
// callback.
void xenc_sim_flush(void);

// The calls since the last look, one per line as in C: "kt_md_setFps(15)".  Callback and user pointers are
// shown as "set" or "null".  Valid until the next look, so for one thread at a time.
const char* xenc_sim_take_calls(void);

// Back to the beginning: closed, no calls, no failures, normal pictures.  Not while another thread is in the
// library.
void xenc_sim_reset(void);

} // extern "C"

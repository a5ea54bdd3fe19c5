#pragma once

// The board's encoder library, as far as the daemon uses it: one encoder session per process.
//
// Order of the calls: kt_init; the registrations and setters; kt_md_init; the NAL and audio registrations; kt_md_start.
// Then any number of kt_md_capture.  Back: kt_md_stop, kt_md_uninit, kt_uninit.  A new rotation takes effect with
// kt_md_stop, kt_md_uninit and everything from the registrations on; kt_init stays.
//
// Every function returns non-zero for success and 0 for failure.  The library calls back on threads of its own, at any
// time from the registration to the end of kt_uninit, also while one of its functions is running.  It keeps the
// function and user pointers it is given and owns neither.

// The encoder's state, as reported to the state callback.
enum H264EncState : int { STATE_ZERO = 0, STATE_INIT = 1, STATE_SETUP = 2, STATE_SETUP_VENC = 3, STATE_ENCODING = 4 };

extern "C" {

// System and media events share one code space.  The meaning of param is the library's own.
typedef bool (*kt_sys_event_callback)(int event, int param, void* user);
typedef bool (*kt_md_event_callback)(int event, int param, void* user);
typedef bool (*kt_md_state_callback)(int state, int param, void* user); // an H264EncState
typedef void (*kt_md_log_callback)(int level, const char* text);        // the text is valid during the call
// The encoded streams; the data is valid during the call.
typedef bool (*kt_md_nal_callback)(void* data, int size, int type, void* user);
typedef bool (*kt_md_audio_callback)(void* data, int size, void* user);

int kt_init(int mode);
int kt_uninit(void); // returns once no callback is running, so it must not be called in one

int kt_sys_setCallback(kt_sys_event_callback callback, void* user);
int kt_md_setLogfunc(kt_md_log_callback callback);
int kt_md_setCallbackOnState(kt_md_state_callback callback, void* user);
int kt_md_setCallbackOnEvent(kt_md_event_callback callback, void* user);
int kt_md_setCallbackOnNal(kt_md_nal_callback callback, void* user);
int kt_md_setCallbackOnAudio(kt_md_audio_callback callback, void* user);

int kt_md_setFps(int framesPerSecond);
int kt_md_setGop(int length);
int kt_md_setBitrate(int rate);
int kt_md_vencSize(int channel, int size);
// Degrees (0, 90, 180, 270) in the upper 16 bits, the lower 16 bits zero.
int kt_md_setScreenRotate(int rotation);

int kt_md_init(int a, int b, int c, int d, int e);
int kt_md_uninit(void);
int kt_md_start(void);
int kt_md_stop(void);

// Writes the current picture to path as a JPEG file.  Blocks until it is written.
int kt_md_capture(const char* path);

} // extern "C"

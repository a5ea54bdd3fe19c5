// The encoder session: Initialize, resetScreenMode, Destory.  Tested in tests/capture/SessionTest.cpp.
#include "capture/Capture.h"

#include <sys/eventfd.h>

#include <chrono>
#include <thread>

#include "capture/Config.h"
#include "capture/EndWatch.h"
#include "common/FileLogger.h"

using namespace std::chrono_literals;

namespace qz::capture {

Capture::Capture() : m_Future(m_Promise.get_future()), m_EndEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Capture::~Capture() {
    if (m_XEncInit || m_MdInit || m_MdStart)
        Destory();
}

int32_t Capture::Rotation(int32_t mode) {
    switch (mode) {
    case 1:
        return 0x005A0000; // 90 degrees
    case 2:
        return 0x00B40000; // 180
    case 3:
        return 0x010E0000; // 270
    default:
        return 0;
    }
}

// The numbers are those of this board.  What they mean beyond their setters' names is the library's own.  The results
// of the registrations and setters are not tested: kt_md_init is where the library answers for them.
bool Capture::ConfigureEncoder(int32_t rotation) {
    kt_sys_setCallback(onXEncSysEvent, this);
    kt_md_setLogfunc(onXEncLog);
    kt_md_setCallbackOnState(onXEncMdState, this);
    kt_md_setCallbackOnEvent(onXEncMdEvent, this);
    kt_md_setFps(15);
    kt_md_setGop(1024);
    kt_md_setBitrate(1024);
    kt_md_vencSize(0, 0);
    kt_md_vencSize(1, 2);
    kt_md_setScreenRotate(rotation);
    return kt_md_init(0, 1, 23, 0, 1) != 0;
}

bool Capture::StartEncoder() {
    kt_md_setCallbackOnNal(onXEncNal, nullptr);
    kt_md_setCallbackOnAudio(onXEncAudio, nullptr);
    return kt_md_start() != 0;
}

bool Capture::Initialize() {
    if (m_Running)
        return false;
    Config* config = Config::instance();
    if (!config->ReadSystemConfiguration())
        QZ_LOG(ERR, " * read system configuration fail."); // the mode set last, 0 at first, serves as well
    config->Print();

    m_XEncInit = kt_init(3) != 0;
    if (!m_XEncInit) {
        QZ_LOG(ERR, "kt_init failed");
        return false;
    }
    QZ_LOG(INF, "kt_init success");

    m_MdInit = ConfigureEncoder(Rotation(config->ScreenMode()));
    if (m_MdInit) {
        QZ_LOG(INF, "kt_md_init success");
        m_MdStart = StartEncoder();
        if (m_MdStart)
            QZ_LOG(INF, "kt_md_start success");
        else
            QZ_LOG(ERR, "kt_md_start failed");
    } else {
        QZ_LOG(ERR, "kt_md_init fail");
    }
    return m_XEncInit && m_MdInit && m_MdStart;
}

void Capture::resetScreenMode(int32_t mode) {
    Config::instance()->SetScreenMode(mode);

    // The library itself stays open.  On success the flags are not written: they were true and are true again.
    if (kt_md_stop() == 0 || kt_md_uninit() == 0) {
        m_MdStart = false;
        QZ_LOG(INF, "ScreenModeChange failed: " << mode);
        return;
    }
    if (!ConfigureEncoder(Rotation(mode))) {
        m_MdInit = false;
        QZ_LOG(ERR, "kt_md_init fail");
        QZ_LOG(INF, "ScreenModeChange failed: " << mode);
        return;
    }
    if (!StartEncoder()) {
        m_MdStart = false;
        QZ_LOG(ERR, "kt_md_start failed");
        QZ_LOG(INF, "ScreenModeChange failed: " << mode);
        return;
    }
    QZ_LOG(INF, "kt_md_setScreenRotate success");
    std::this_thread::sleep_for(1s); // for the turned picture to arrive
    QZ_LOG(INF, "ScreenModeChange success: " << mode);
}

void Capture::Destory() {
    if (!m_XEncInit && !m_MdInit && !m_MdStart) {
        QZ_LOG(ERR, "Destory failed : " << m_XEncInit << "/" << m_MdInit << "/" << m_MdStart);
        return;
    }
    // A stage that was never reached is reported as failed too: so a partial start shows in the log.
    EndWatch::enter(EndWatch::Stage::LIBRARY, "kt_md_stop");
    if (m_MdStart && kt_md_stop() != 0) {
        m_MdStart = false;
        QZ_LOG(INF, "kt_md_stop success");
    } else {
        QZ_LOG(ERR, "kt_md_stop failed");
    }
    EndWatch::enter(EndWatch::Stage::LIBRARY, "kt_md_uninit");
    if (m_MdInit && kt_md_uninit() != 0) {
        m_MdInit = false;
        QZ_LOG(INF, "kt_md_uninit success");
    } else {
        QZ_LOG(ERR, "kt_md_uninit failed");
    }
    EndWatch::enter(EndWatch::Stage::LIBRARY, "kt_uninit");
    if (m_XEncInit && kt_uninit() != 0) {
        m_XEncInit = false;
        QZ_LOG(INF, "kt_uninit success");
    } else {
        QZ_LOG(ERR, "kt_uninit failed");
    }
}

void Capture::Stop() {
    Destory();
}

} // namespace qz::capture

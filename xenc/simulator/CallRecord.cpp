// The record of the calls and the planned failures.
#include "xenc/simulator/CallRecord.h"

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>
#include <utility>

namespace qz::xenc {

namespace {

constexpr size_t RECORD_LIMIT = 1 << 20; // bytes

constexpr const char* FUNCTIONS[] = {"kt_init",
                                     "kt_uninit",
                                     "kt_sys_setCallback",
                                     "kt_md_setLogfunc",
                                     "kt_md_setCallbackOnState",
                                     "kt_md_setCallbackOnEvent",
                                     "kt_md_setCallbackOnNal",
                                     "kt_md_setCallbackOnAudio",
                                     "kt_md_setFps",
                                     "kt_md_setGop",
                                     "kt_md_setBitrate",
                                     "kt_md_vencSize",
                                     "kt_md_setScreenRotate",
                                     "kt_md_init",
                                     "kt_md_uninit",
                                     "kt_md_start",
                                     "kt_md_stop",
                                     "kt_md_capture",
                                     "exit"};

} // namespace

void CallRecord::Add(const std::string& function, const std::string& arguments) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (m_Calls.size() > RECORD_LIMIT)
        m_Calls.erase(0, m_Calls.find('\n', RECORD_LIMIT / 2) + 1);
    m_Calls += function + "(" + arguments + ")\n";
}

std::string CallRecord::Take() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    return std::exchange(m_Calls, {});
}

bool CallRecord::PlanFailures(const std::string& function, int count) {
    if (std::find(std::begin(FUNCTIONS), std::end(FUNCTIONS), function) == std::end(FUNCTIONS))
        return false;
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Failures[function] = count;
    return true;
}

bool CallRecord::TakeFailure(const std::string& function) {
    std::unique_lock<std::mutex> lock(m_Lock);
    const auto failure = m_Failures.find(function);
    if (failure == m_Failures.end() || failure->second == 0)
        return false;
    if (failure->second == HANG) {
        lock.unlock();
        for (;;)
            std::this_thread::sleep_for(std::chrono::hours(1));
    }
    if (failure->second == FAULT)
        raise(SIGSEGV);
    --failure->second;
    return true;
}

void CallRecord::Reset() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Calls.clear();
    m_Failures.clear();
}

} // namespace qz::xenc

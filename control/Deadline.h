#pragma once

#include <chrono>

namespace qz::control {

// The moment until which a command may take.
class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds limit) : m_End(Clock::now() + limit) {}
    bool Passed() const { return Clock::now() >= m_End; }
    std::chrono::milliseconds Left() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_End - Clock::now());
        return left.count() > 0 ? left : std::chrono::milliseconds(0);
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_End;
};

} // namespace qz::control

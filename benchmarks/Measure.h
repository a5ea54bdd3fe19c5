#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "common/Constants.h"

// What the benchmarks share: clocks, medians, and the report of figures beside their limits.  Times are in
// microseconds.  Every variant of a comparison runs in turn in one process, so that what disturbs the machine disturbs
// all of them.
namespace qz::benchmarks {

// The daemon's, on the private appliance (scripts/appliance.sh).
inline const std::string LOG_DIRECTORY = common::LOG_DIR + "/agent";

inline double WallTime() {
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Of this process, all its threads, and of the children it has waited for.
inline double CpuTime() {
    double sum = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        for (const timeval& part : {usage.ru_utime, usage.ru_stime})
            sum += static_cast<double>(part.tv_sec) * 1e6 + static_cast<double>(part.tv_usec);
    }
    return sum;
}

inline void Pause(std::chrono::microseconds time) {
    std::this_thread::sleep_for(time);
}

// The sample below which that part of the samples lies.
inline double Quantile(std::vector<double> samples, double part) {
    if (samples.empty())
        return 0;
    const auto at = static_cast<size_t>(part * static_cast<double>(samples.size() - 1) + 0.5);
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(at), samples.end());
    return samples[at];
}

inline double Median(const std::vector<double>& samples) {
    return Quantile(samples, 0.5);
}

inline double Maximum(const std::vector<double>& samples) {
    return Quantile(samples, 1);
}

// Ends the program: a benchmark that did not do its work has no figures.
[[noreturn]] inline void Fail(const std::string& reason) {
    std::fprintf(stderr, "benchmark: %s\n", reason.c_str());
    std::exit(2);
}

inline void Require(bool condition, const std::string& reason) {
    if (!condition)
        Fail(reason);
}

// Prints one line a figure and remembers whether all kept their limits.
class Report {
public:
    explicit Report(const char* title) { std::printf("%s\n", title); }

    // ours / other: the ratio of the medians, with the quartiles of the ratios of single rounds.
    void Ratio(const std::string& name, const std::vector<double>& ours, const std::vector<double>& other,
               double limit) {
        std::vector<double> rounds;
        for (size_t i = 0; i < ours.size(); ++i)
            rounds.push_back(ours[i] / other[i]);
        const double ratio = Median(ours) / Median(other);
        Print(name, ratio, "x", limit);
        std::printf("  quartiles %.3f to %.3f; %.4g us to %.4g us\n", Quantile(rounds, 0.25), Quantile(rounds, 0.75),
                    Median(ours), Median(other));
    }

    // The median and the maximum, each with its limit.
    void Bounded(const std::string& name, const std::vector<double>& samples, const char* unit, double medianLimit,
                 double maximumLimit) {
        Print(name + ", median", Median(samples), unit, medianLimit);
        std::printf("\n");
        Print(name + ", longest", Maximum(samples), unit, maximumLimit);
        Spread(samples, unit);
    }

    // A count that has to be 0.
    void None(const std::string& name, int count) {
        Print(name, count, "", 0.5);
        std::printf("\n");
    }

    // A figure without a limit: the median.
    void Plain(const std::string& name, const std::vector<double>& samples, const char* unit) {
        Print(name, Median(samples), unit, 0);
        Spread(samples, unit);
    }

    // The exit status for main.
    int Status() const { return m_Missed ? 1 : 0; }

private:
    void Print(const std::string& name, double value, const char* unit, double limit) {
        std::printf("  %-48s %8.3f %-3s", name.c_str(), value, unit);
        if (limit <= 0) {
            std::printf("  %-20s", "");
            return;
        }
        const bool kept = value <= limit;
        m_Missed = m_Missed || !kept;
        std::printf("  limit %-6g %-7s", limit, kept ? "kept" : "MISSED");
    }

    static void Spread(const std::vector<double>& samples, const char* unit) {
        std::printf("  median %.3f, quartiles %.3f to %.3f, maximum %.3f %s (%zu)\n", Median(samples),
                    Quantile(samples, 0.25), Quantile(samples, 0.75), Maximum(samples), unit, samples.size());
    }

    bool m_Missed = false;
};

} // namespace qz::benchmarks

#pragma once

#include <map>
#include <mutex>
#include <string>

namespace qz::xenc {

// The calls of the kt_ functions so far, and those that are to fail.  "exit", the library's part in the end of the
// process, counts as a function.
//
// Threads: any thread may call everything.
class CallRecord {
public:
    // Adds "function(arguments)".  A program that runs for weeks must not fill the memory: the older half goes.
    void Add(const std::string& function, const std::string& arguments);
    // One call per line; the record begins anew.
    std::string Take();

    // The next count calls of the function are to fail, or, with HANG, not to return, or, with FAULT, to raise SIGSEGV.
    // False when there is no such function.
    static constexpr int HANG = -1;
    static constexpr int FAULT = -2;
    bool PlanFailures(const std::string& function, int count);
    // Whether this call is to fail, which is then one less.  Does not return for one that is to hang.
    bool TakeFailure(const std::string& function);

    void Reset();

private:
    std::mutex m_Lock; // guards the fields below
    std::string m_Calls;
    std::map<std::string, int> m_Failures;
};

} // namespace qz::xenc

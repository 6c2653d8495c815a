#pragma once

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

/// Waits until the condition holds; false when it doesn't within the limit.
template <class Condition> bool WaitFor(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10))
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Whether the thread of this process waits for something at this moment.
inline bool IsAsleep(int nThreadId)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(nThreadId) + "/stat");
    std::string strLine;
    std::getline(stat, strLine);
    const size_t szName = strLine.rfind(") "); // the name may hold anything
    return szName != std::string::npos && strLine.compare(szName + 2, 1, "S") == 0;
}

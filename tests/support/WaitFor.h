#pragma once

#include <chrono>
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

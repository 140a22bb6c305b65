#pragma once
// Polls a condition for up to 10 s (generous for a loaded machine).

#include <chrono>
#include <thread>

template <typename Pred>
bool WaitUntil(Pred pred)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

#pragma once
// Polls a condition every 2 ms for up to `timeoutMs` (generous for a loaded machine).

#include <chrono>
#include <thread>

namespace testsupport {

template <typename Pred>
bool WaitUntil(Pred pred, unsigned timeoutMs = 10000)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!pred()) {
        if (std::chrono::steady_clock::now() > deadline)
            return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace testsupport

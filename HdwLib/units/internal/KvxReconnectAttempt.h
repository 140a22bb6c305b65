#pragma once
// One attempt to open a lost unit's link again, on a thread of its own: an
// Ethernet unit that does not answer holds the attempt for its handshake
// time-outs (about 1.5 s), and neither the tick nor the other units may wait
// that long.
//
// Lock rule: Start, Collect and Cancel only with Gate() held. The tick takes
// the gate with try_lock (an application opening or closing the unit has
// it then, and the tick leaves the unit alone); the application blocks on it.

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace hdw::units {

class CReconnectAttempt {
public:
    CReconnectAttempt() = default;
    CReconnectAttempt(const CReconnectAttempt&) = delete;
    CReconnectAttempt& operator=(const CReconnectAttempt&) = delete;
    ~CReconnectAttempt();

    std::mutex& Gate() { return m_Gate; }

    // Ports of the unit between their Open's opening of the unit and their
    // counting as open: the Close of the unit's last open port leaves the
    // unit open while any is, or it would end the session under them.
    std::atomic<unsigned>& PortsOpening() { return m_PortsOpening; }

    // True from Start until the result is collected or the attempt cancelled.
    bool IsRunning() const { return m_Thread.joinable(); }
    // Runs `work` (abandon, open and verify the link) on a new thread; its
    // return value is the attempt's result (0: the link is open).
    void Start(std::function<unsigned()> work);
    // The result of an attempt that has ended, once (its thread joined);
    // nothing while it runs or when none was started.
    std::optional<unsigned> Collect();
    // Waits for a running attempt to end and drops its result.
    void Cancel();

private:
    std::mutex m_Gate;
    std::atomic<unsigned> m_PortsOpening{0};
    std::thread m_Thread;
    std::atomic<bool> m_Done{false};
    unsigned m_Result = 0;
};

} // namespace hdw::units

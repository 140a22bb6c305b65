#pragma once
// monitor --reconnect: the units of a session whose ports stay open through
// an unplug. Each look compares every command-protocol unit's link status
// with the last one and gives one line per change:
//   unit lost LINK outages=N lost-items=N failed-commands=N
//   unit back LINK returns=N away-ms=N
// LINK is the link the unit was found on ("/dev/serial/by-id/...",
// "udp:127.0.0.1:55003").

#include <HdwLib/HdwLib.h>

#include <chrono>
#include <string>
#include <vector>

namespace hdwtool {

class UnitWatch {
public:
    // Turns the manager's reconnect on; before the manager runs.
    static bool EnableReconnect(CKVX_HdwManager& manager, std::string& error);

    explicit UnitWatch(CKVX_HdwManager& manager);
    // Lines for what changed since the last look.
    std::vector<std::string> Poll();
    // Outages of every unit so far.
    uint64_t Outages() const;
    uint64_t Returns() const;

private:
    struct Unit {
        CKVX_HdwKvxCommandUnit* Device = nullptr;
        unsigned Instance = 0;
        std::string Link;
        CKVX_HdwKvxUnitLinkStatus Last;
        std::chrono::steady_clock::time_point LostAt;
    };
    std::vector<Unit> m_Units;
};

} // namespace hdwtool

#include "UnitWatch.h"

namespace hdwtool {

bool UnitWatch::EnableReconnect(CKVX_HdwManager& manager, std::string& error)
{
    CKVX_HdwManager::CParameters p;
    manager.GetParameters(p);
    p.Reconnect = true;
    if (const unsigned rc = manager.SetParameters(p)) {
        error = "--reconnect: the manager refused it (result " + std::to_string(rc) + ")";
        return false;
    }
    return true;
}

UnitWatch::UnitWatch(CKVX_HdwManager& manager)
{
    for (unsigned d = 0; d < manager.GetDeviceCount(); ++d) {
        CKVX_HdwDevice* device = manager.GetDevice(d);
        auto* unit = dynamic_cast<CKVX_HdwKvxCommandUnit*>(device);
        if (!unit)
            continue;
        for (unsigned i = 0; i < device->GetInstanceCount(); ++i) {
            Unit u;
            u.Device = unit;
            u.Instance = i;
            u.Link = device->GetDeviceInstance(i)->Link.c_str();
            unit->GetUnitLinkStatus(i, u.Last);
            m_Units.push_back(u);
        }
    }
}

std::vector<std::string> UnitWatch::Poll()
{
    std::vector<std::string> lines;
    for (Unit& u : m_Units) {
        CKVX_HdwKvxUnitLinkStatus s;
        if (u.Device->GetUnitLinkStatus(u.Instance, s) != 0)
            continue;
        // Both moments are reported even when one look spans a whole outage.
        if (s.Outages != u.Last.Outages) {
            u.LostAt = std::chrono::steady_clock::now();
            lines.push_back("unit lost " + u.Link + " outages=" + std::to_string(s.Outages) +
                " lost-items=" + std::to_string(s.LostItems) + " failed-commands=" + std::to_string(s.FailedCommands));
        }
        if (s.Returns != u.Last.Returns) {
            const auto away =
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - u.LostAt);
            lines.push_back("unit back " + u.Link + " returns=" + std::to_string(s.Returns) +
                " away-ms=" + std::to_string(away.count()));
        }
        u.Last = s;
    }
    return lines;
}

uint64_t UnitWatch::Outages() const
{
    uint64_t n = 0;
    for (const Unit& u : m_Units)
        n += u.Last.Outages;
    return n;
}

uint64_t UnitWatch::Returns() const
{
    uint64_t n = 0;
    for (const Unit& u : m_Units)
        n += u.Last.Returns;
    return n;
}

} // namespace hdwtool

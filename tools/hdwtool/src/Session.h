#pragma once
// The library side of a command: a manager with the drivers attached, the
// units enumerated from explicit links (and a scan only when asked), and
// ports found by name or key. Errors come back as one line of text.

#include "Ports.h"

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace hdwtool {

// "--link CODE:LINK": a device code (3, or a driver name such as "halden")
// and the link text ("/dev/ttyUSB0", "udp:127.0.0.1:55003").
struct LinkSpec {
    uint64_t DeviceCode = 0;
    std::string Link;
};
bool ParseLinkSpec(const std::string& text, LinkSpec& link, std::string& error);

// A library result code in words: "port not open (result 19)".
std::string ResultText(unsigned code);

class Session {
public:
    Session();
    ~Session(); // stops the manager, then deletes the drivers
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Attaches the drivers and enumerates the links (and scans with `scan`).
    // False when a link has no unit behind it, or when nothing was found.
    bool Enumerate(const std::vector<LinkSpec>& links, bool scan, std::string& error);
    bool Run(std::string& error);
    void Stop();

    CKVX_HdwManager& Manager() { return m_Manager; }
    // The port a target names, with its "a429rx:0" name.
    CKVX_HdwPort* Resolve(const PortSpec& target, std::string& name, std::string& error);
    // Every port, in ascending absolute number per type.
    std::vector<CKVX_HdwManager::CPortInfo> Ports();

private:
    CKVX_HdwManager m_Manager;
    std::vector<std::unique_ptr<CKVX_HdwDevice>> m_Devices;
};

} // namespace hdwtool

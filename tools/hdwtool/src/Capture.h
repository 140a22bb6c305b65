#pragma once
// What monitor writes besides its lines: a candump log of the CAN ports
// (--log) and a pcapng file of the CAN and ARINC 429 ports (--pcap), one
// interface per port named like the log's (can0, a429rx1, a429tx0). Items
// of other ports are not captured.

#include "CandumpLog.h"
#include "Channel.h"
#include "PcapWriter.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace hdwtool {

class Capture {
public:
    Capture() = default;
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // Opens the files named (an empty path: none) for the watched channels;
    // false with a reason when a file cannot be created or no watched port
    // has items of its kind.
    bool Open(const std::string& logPath, const std::string& pcapPath, const std::vector<Channel*>& watched,
        LabelOrder order, bool evenParity, std::string& error);
    // An item of watched channel `index` at wall-clock time `wallUs`.
    void Record(size_t index, const Item& item, uint64_t wallUs);
    bool Flush(std::string& error);

private:
    struct Port {
        std::string Interface;
        unsigned PortType = 0;
        uint8_t Number = 0;
        int PcapInterface = -1;
    };
    std::vector<Port> m_Ports;
    FILE* m_Log = nullptr;
    std::string m_LogPath;
    std::unique_ptr<PcapWriter> m_Pcap;
    LabelOrder m_Order = LabelOrder::Reversed;
    bool m_EvenParity = false;
};

} // namespace hdwtool

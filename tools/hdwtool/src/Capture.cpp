#include "Capture.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace hdwtool {

Capture::~Capture()
{
    if (m_Log)
        std::fclose(m_Log);
}

bool Capture::Open(const std::string& logPath, const std::string& pcapPath, const std::vector<Channel*>& watched,
    LabelOrder order, bool evenParity, std::string& error)
{
    m_Order = order;
    m_EvenParity = evenParity;
    bool anyCan = false, anyPcap = false;
    for (Channel* c : watched) {
        Port p;
        p.Interface = CandumpInterface(c->Name());
        p.PortType = c->PortType();
        const size_t colon = c->Name().rfind(':');
        p.Number = uint8_t(std::strtoul(c->Name().c_str() + colon + 1, nullptr, 10));
        anyCan = anyCan || p.PortType == HDW_PORT_CAN;
        anyPcap = anyPcap || p.PortType == HDW_PORT_CAN || p.PortType == HDW_PORT_ARINC429_RX ||
            p.PortType == HDW_PORT_ARINC429_TX;
        m_Ports.push_back(p);
    }
    if (!logPath.empty()) {
        if (!anyCan) {
            error = "--log records CAN ports, and none is monitored";
            return false;
        }
        m_Log = std::fopen(logPath.c_str(), "w");
        if (!m_Log) {
            error = "cannot create " + logPath + ": " + std::strerror(errno);
            return false;
        }
        m_LogPath = logPath;
    }
    if (!pcapPath.empty()) {
        if (!anyPcap) {
            error = "--pcap records CAN and ARINC 429 ports, and none is monitored";
            return false;
        }
        m_Pcap = std::make_unique<PcapWriter>();
        if (!m_Pcap->Open(pcapPath, error))
            return false;
        for (auto& p : m_Ports)
            if (p.PortType == HDW_PORT_CAN)
                p.PcapInterface = int(m_Pcap->AddInterface(LinkTypeSocketCan, p.Interface));
            else if (p.PortType == HDW_PORT_ARINC429_RX || p.PortType == HDW_PORT_ARINC429_TX)
                p.PcapInterface = int(m_Pcap->AddInterface(LinkTypeArinc429, p.Interface));
    }
    return true;
}

void Capture::Record(size_t index, const Item& item, uint64_t wallUs)
{
    const Port& p = m_Ports.at(index);
    if (m_Log && item.PortType == HDW_PORT_CAN)
        std::fprintf(m_Log, "%s\n", FormatCandumpLine(wallUs, p.Interface, item.Frame).c_str());
    if (!m_Pcap || p.PcapInterface < 0)
        return;
    if (item.PortType == HDW_PORT_CAN) {
        const auto r = SocketCanRecord(item.Frame);
        m_Pcap->Write(uint32_t(p.PcapInterface), wallUs, r.data(), r.size());
    } else if (item.PortType == HDW_PORT_ARINC429_RX || item.PortType == HDW_PORT_ARINC429_TX) {
        Arinc429RecordInfo info;
        info.Transmitted = item.PortType == HDW_PORT_ARINC429_TX;
        info.WireOrder = m_Order == LabelOrder::Wire;
        info.ParityError = item.ParityError;
        info.EvenParity = m_EvenParity;
        info.Channel = p.Number;
        const auto r = Arinc429Record(item.Word, info);
        m_Pcap->Write(uint32_t(p.PcapInterface), wallUs, r.data(), r.size());
    }
}

bool Capture::Flush(std::string& error)
{
    if (m_Log && (std::fflush(m_Log) != 0 || std::ferror(m_Log))) {
        error = "writing " + m_LogPath + " failed: " + std::strerror(errno);
        return false;
    }
    return !m_Pcap || m_Pcap->Flush(error);
}

} // namespace hdwtool

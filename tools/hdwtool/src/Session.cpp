#include "Session.h"

#include "Values.h"

#include <algorithm>

namespace hdwtool {

namespace {

struct DriverName {
    const char* Name;
    uint64_t Code;
    CKVX_HdwDevice* (*Create)();
};

template <class D>
CKVX_HdwDevice* Make()
{
    return new D;
}

// Every driver the tool attaches, in attachment (and so numbering) order:
// the units' ports come first.
const DriverName kDrivers[] = {
    {"halden", 3, &Make<CKVX_HdwKvxHaldenDevice>},
    {"bexley", 4, &Make<CKVX_HdwKvxBexleyDevice>},
    {"arvane", 6, &Make<CKVX_HdwKvxArvaneDevice>},
    {"haldensmall", 8, &Make<CKVX_HdwKvxHaldenSmallDevice>},
    {"sorrel", 9, &Make<CKVX_HdwKvxSorrelDevice>},
    {"pellor", 10, &Make<CKVX_HdwKvxPellorDevice>},
    {"quillan", 11, &Make<CKVX_HdwKvxQuillanDevice>},
    {"mirrow", 12, &Make<CKVX_HdwKvxMirrowDevice>},
    {"pcuart", CKVX_HdwStdUartDevice::StdUartDeviceCode, &Make<CKVX_HdwStdUartDevice>},
    {"udpuart", CKVX_HdwUdpEmulatorDevice::UdpEmulatorDeviceCode, &Make<CKVX_HdwUdpEmulatorDevice>},
};

std::string DriverList()
{
    std::string text;
    for (const auto& d : kDrivers)
        text += (text.empty() ? "" : ", ") + std::to_string(d.Code) + " " + d.Name;
    return text;
}

} // namespace

bool ParseLinkSpec(const std::string& text, LinkSpec& link, std::string& error)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
        error = "link \"" + text + "\" is not CODE:LINK (3:/dev/ttyUSB0, 3:udp:127.0.0.1:55003)";
        return false;
    }
    const std::string code = text.substr(0, colon);
    uint64_t value = 0;
    bool known = false;
    for (const auto& d : kDrivers)
        if (code == d.Name) {
            value = d.Code;
            known = true;
        }
    if (!known && !ParseNumber(code, value)) {
        error = "device code \"" + code + "\" is neither a number nor a driver name (" + DriverList() + ")";
        return false;
    }
    link.DeviceCode = value;
    link.Link = text.substr(colon + 1);
    return true;
}

std::string ResultText(unsigned code)
{
    return std::string(CKVX_HdwObject::GetResultText(code)) + " (result " + std::to_string(code) + ")";
}

Session::Session()
{
    for (const auto& d : kDrivers)
        m_Devices.emplace_back(d.Create());
    for (auto& d : m_Devices)
        m_Manager.AttachDevice(d.get());
}

Session::~Session()
{
    m_Manager.Stop();
    m_Manager.Destroy();
}

bool Session::Enumerate(const std::vector<LinkSpec>& links, bool scan, std::string& error)
{
    std::vector<CKVX_HdwManager::CInitPortDesc> descs;
    for (const auto& l : links) {
        if (!m_Manager.FindDevice(l.DeviceCode)) {
            error = "no driver has device code " + std::to_string(l.DeviceCode) + " (" + DriverList() + ")";
            return false;
        }
        descs.emplace_back(l.DeviceCode, CKVX_String(l.Link.c_str()));
    }
    if (descs.empty() && !scan) {
        error = "no unit to talk to: give --link CODE:LINK (e.g. --link 3:/dev/ttyUSB0) or --scan";
        return false;
    }
    const unsigned rc = descs.empty()
        ? m_Manager.Enumerate()
        : m_Manager.Enumerate(descs.data(), unsigned(descs.size()), scan ? 0 : CKVX_HdwManager::EnumerateNoScan);
    for (size_t i = 0; i < descs.size(); ++i) {
        if (descs[i].Result != 0) {
            const unsigned r = descs[i].Result == CKVX_HdwManager::CInitPortDesc::ResultNotTried ? 14 : descs[i].Result;
            error = "no unit answered on link " + std::to_string(links[i].DeviceCode) + ":" + links[i].Link + ": " +
                ResultText(r);
            return false;
        }
    }
    if (rc != 0) {
        error = "enumeration failed: " + ResultText(rc);
        return false;
    }
    if (Ports().empty()) {
        error = scan ? "the scan found no unit" : "the links gave no ports";
        return false;
    }
    return true;
}

bool Session::Run(std::string& error)
{
    const unsigned rc = m_Manager.Run();
    if (rc != 0) {
        error = "cannot start the hardware manager: " + ResultText(rc);
        return false;
    }
    return true;
}

void Session::Stop()
{
    m_Manager.Stop();
}

std::vector<CKVX_HdwManager::CPortInfo> Session::Ports()
{
    CKVX_HdwManager::CPortInfoVector list;
    std::vector<CKVX_HdwManager::CPortInfo> out;
    if (m_Manager.GetPortList(list) != 0)
        return out;
    for (unsigned i = 0; i < list.GetLength(); ++i)
        out.push_back(list[i]);
    std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) {
        return a.PortType != b.PortType ? a.PortType < b.PortType : a.AbsNum < b.AbsNum;
    });
    return out;
}

CKVX_HdwPort* Session::Resolve(const PortSpec& target, std::string& name, std::string& error)
{
    if (target.ByKey) {
        unsigned absNum = 0;
        CKVX_HdwPort* port = m_Manager.FindPort(CKVX_String(target.Key.c_str()), &absNum);
        if (!port) {
            error = "no port of the enumerated units has the key \"" + target.Key + "\"";
            return nullptr;
        }
        name = PortName(port->GetPortType(), absNum);
        return port;
    }
    CKVX_HdwPort* port = m_Manager.GetPort(target.PortType, target.AbsNum);
    if (!port) {
        const unsigned count = m_Manager.GetPortCount(target.PortType);
        error = "unknown port " + PortName(target.PortType, target.AbsNum) + ": the units have " +
            (count ? PortTypeName(target.PortType) + ":0 to " + PortTypeName(target.PortType) + ":" +
                        std::to_string(count - 1)
                   : "no " + PortTypeName(target.PortType) + " port");
        return nullptr;
    }
    name = PortName(target.PortType, target.AbsNum);
    return port;
}

} // namespace hdwtool

#pragma once
// Finding Ethernet units during enumeration, shared by the Ethernet-only and
// the dual-link device bases: the explicit "udp:HOST:PORT" links handed over
// by the manager are probed with a Detect to that address; on an
// application's scan with Ethernet mode on, a broadcast Detect on the unit
// port finds the rest. Each unit that answers and that the driver accepts
// becomes a new instance, identified by the Detect reply.

#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/links/HdwHoeLink.h>
#include <HdwLib/links/internal/HoeSession.h>

#include <vector>

namespace hdw::links {

inline bool IsUdpLink(const CKVX_String& link)
{
    return link.Left(4) == "udp:";
}

inline CKVX_HdwHoeLink::CDetectInfo ToDetectInfo(const HoeDetectReply& r)
{
    CKVX_HdwHoeLink::CDetectInfo info;
    info.DeviceKind = r.DeviceKind;
    info.ModelName = r.ModelName;
    info.SerialNumber = r.SerialNumber;
    info.Revision = r.Revision;
    info.Address = r.Address;
    info.Port = r.Port;
    return info;
}

// `make()` gives a new empty instance (or null) (derived from CKVX_HdwDevice::CDeviceInstance
// and CKVX_HdwHoeLink); `accept(info)` says whether the unit is the driver's kind.
// Links that are not "udp:" get Result 2 when `claimAllLinks`, else are left alone.
template <typename Instance, typename Make, typename Accept>
void ProbeHoeUnits(CKVX_HdwDevice& device, unsigned clientId, bool scan, unsigned short scanPort, bool claimAllLinks,
    Make make, Accept accept, std::vector<Instance*>& found)
{
    auto adopt = [&](const CKVX_HdwHoeLink::CDetectInfo& info, const CKVX_String& linkText) {
        Instance* inst = make();
        if (!inst)
            return;
        inst->ClientId = clientId;
        inst->EthernetMode = 1;
        inst->UnitAddress = info.Address;
        inst->UnitPort = info.Port;
        inst->SerialNumber = info.SerialNumber.IsEmpty() ? linkText : info.SerialNumber;
        inst->Revision = info.Revision;
        inst->Link = linkText;
        found.push_back(inst);
    };
    auto known = [&](const CKVX_IpAddress& a, unsigned short port) {
        for (Instance* i : found)
            if (i->EthernetMode && i->UnitAddress == a && i->UnitPort == port)
                return true;
        return false;
    };

    for (unsigned n = 0; n < device.GetEnumerationLinkCount(); ++n) {
        CKVX_HdwInitPortDesc* link = device.GetEnumerationLink(n);
        if (!link)
            continue;
        if (!IsUdpLink(link->Link)) {
            if (claimAllLinks)
                link->Result = HDW_ERR_ARGUMENT;
            continue;
        }
        CKVX_HdwHoeLink probe;
        probe.ClientId = clientId;
        if (!CHoeSession::ParseLink(link->Link, probe.UnitAddress, probe.UnitPort)) {
            link->Result = HDW_ERR_ARGUMENT;
            continue;
        }
        if (known(probe.UnitAddress, probe.UnitPort)) {
            link->Result = 0;
            continue;
        }
        CKVX_HdwHoeLink::CDetectInfo info;
        if (probe.EthDetect(info) != 0 || !accept(info)) {
            link->Result = HDW_ERR_LINK;
            continue;
        }
        // The unit is addressed where the link named it, whatever the reply's source.
        info.Address = probe.UnitAddress;
        info.Port = probe.UnitPort;
        adopt(info, link->Link);
        link->Result = 0;
    }

    if (!scan || scanPort == 0)
        return;
    std::vector<HoeDetectReply> replies;
    CHoeSession::DetectBroadcast(CKVX_HdwHoe(clientId), scanPort, CKVX_HdwHoeLink::DetectTimeoutMs, replies);
    for (const HoeDetectReply& r : replies) {
        const CKVX_HdwHoeLink::CDetectInfo info = ToDetectInfo(r);
        if (known(r.Address, r.Port) || !accept(info))
            continue;
        CKVX_String text;
        text.Format("udp:%s:%u", r.Address.ToString().c_str(), unsigned(r.Port));
        adopt(info, text);
    }
}

} // namespace hdw::links

#pragma once
// Opening and closing an Ethernet unit's link for the device bases that
// reach units over HOE (the Ethernet-only and the dual-link base).

#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/links/HdwHoeLink.h>

namespace hdw::links {

// Connects the instance's session unless the instance is open already. The
// handshake runs outside the instance lock so that the tick of the device's
// other work is not held up; the open flag is set under it.
inline unsigned OpenHoeInstance(CKVX_HdwDevice& device, CKVX_HdwDevice::CDeviceInstance& inst, CKVX_HdwHoeLink& link)
{
    inst.Lock();
    const bool open = inst.IsOpen();
    inst.Unlock();
    if (open)
        return 0;
    if (const unsigned rc = link.CreateEthernetLink(device.GetManager(), device.GetLinkTimeout()))
        return rc;
    inst.Lock();
    inst.SetOpen(true);
    inst.Unlock();
    return 0;
}

// Ends the session when no port of the unit is open any more.
inline unsigned CloseHoeInstance(
    CKVX_HdwDevice& device, unsigned instance, CKVX_HdwDevice::CDeviceInstance& inst, CKVX_HdwHoeLink& link)
{
    if (!device.CanClose(instance))
        return 0;
    inst.Lock();
    inst.SetOpen(false);
    inst.Unlock();
    link.EthDisconnect();
    return 0;
}

// The transport of a unit is chosen before the manager runs.
inline bool MayChangeEthernetMode(const CKVX_HdwDevice& device)
{
    const CKVX_HdwManager* manager = device.GetManager();
    return !manager || !manager->IsRunning();
}

} // namespace hdw::links

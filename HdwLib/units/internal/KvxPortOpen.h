#pragma once
// The open and close steps that the unit's ports share: a port configures
// its channel on the unit when it opens (OnOpening, under the device lock),
// waits without the lock for the unit to confirm it, and switches the
// channel off when it closes.

#include <HdwLib/framework/HdwPort.h>
#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <atomic>

namespace hdw::units {

// The rest of a port's Open once the generic open has run: waits for the
// configuration to be echoed (never with the device lock held) and undoes
// the open when the unit does not confirm it.
unsigned FinishOpen(CKVX_HdwPort& port, unsigned openResult, unsigned timeoutMs);

// Counts `port` among its unit's ports being opened for its lifetime (see
// CReconnectAttempt::PortsOpening).
class COpeningPort {
public:
    explicit COpeningPort(CKVX_HdwPort& port);
    ~COpeningPort();
    COpeningPort(const COpeningPort&) = delete;
    COpeningPort& operator=(const COpeningPort&) = delete;

private:
    std::atomic<unsigned>* m_Count = nullptr;
};

inline unsigned OpenTimeout(const CKVX_HdwPort::CParameters* params)
{
    return params ? params->Timeout : 1000;
}

// Open of a unit's port over the generic port G: `params` must be null or
// G's parameter class with values `usable` accepts (else a bad argument);
// then the generic open and FinishOpen.
template <class G, class P, class F>
unsigned OpenChannel(P& port, CKVX_HdwPort::CParameters* params, F&& usable)
{
    if (params) {
        const auto* own = dynamic_cast<const typename G::CParameters*>(params);
        if (!own || !usable(*own))
            return HDW_ERR_ARGUMENT;
    }
    unsigned rc = 0;
    {
        COpeningPort opening(port);
        rc = port.G::Open(params);
    }
    return FinishOpen(port, rc, OpenTimeout(params));
}

// OnOpening of a port whose channel is set up by one configuration command:
// the generic port's checks (of its base class G), then the configuration
// with the channel on, attached under the device lock.
template <class G, class P>
unsigned AttachOnOpening(P& port, CKVX_HdwPort::CParameters* params)
{
    if (const unsigned rc = port.G::OnOpening(params))
        return rc;
    port.DeviceLock();
    const unsigned rc = port.AttachConfiguration(true);
    port.DeviceUnlock();
    return rc;
}

// Close of such a port: the channel off on the unit, then the generic close.
template <class G, class P>
unsigned CloseChannel(P& port)
{
    if (!port.IsOpen())
        return 0;
    port.DeviceLock();
    port.AttachConfiguration(false);
    port.DeviceUnlock();
    return port.G::Close();
}

} // namespace hdw::units

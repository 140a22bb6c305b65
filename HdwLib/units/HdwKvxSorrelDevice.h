#pragma once
// Driver of the Sorrel unit: six UARTs, reached over Ethernet only. After
// the HOE session is up each UART is reached with the HOE port packets
// (port type 1, channel = UART number); the unit speaks no command frames.
//
// Channel map: CUartPort, channels "0" to "5" (UART ports 0-5 of a Sorrel
// alone). Each port takes the byte input and byte output services.
//
// The HOE receive thread hands each port packet to the instance
// (EthProcessPortPacket): Data buffers are checked against the expected
// number and acknowledged at once, their bytes wait in the UART's receive
// queue for the tick, which moves them into the byte input service.
//
// With the manager's reconnect on, a unit whose open ports fell silent for
// the link time-out is lost: the tick opens the session again on an attempt
// thread with the command units' back-off, sends Open port and Configure
// port for every port that was open, and the byte services go on.
//
//     CKVX_HdwKvxSorrelDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link(9, "udp:192.168.0.20:55009");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/links/HdwHoeDevice.h>
#include <HdwLib/units/KvxSorrelServices.h>
#include <HdwLib/units/KvxSorrelUartPort.h>
#include <HdwLib/units/KvxUnitLink.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxSorrelDevice : public CKVX_HdwHoeDevice {
public:
    static constexpr uint64_t DeviceCode = 9;
    static constexpr unsigned short UdpPort = 55009;
    static constexpr unsigned UartCount = 6;

    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwHoeDevice::CDeviceInstance {
    public:
        CDeviceInstance();
        // Ends the session before the channels go.
        ~CDeviceInstance() override;

        unsigned EthProcessPortPacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size) override;

        // The host side of UART `channel` (null above 5).
        hdw::units::CSorrelChannel* GetChannel(unsigned channel);
        // A port packet to the unit: 0, 14 without a session.
        unsigned SendPortPacket(
            unsigned channel, uint32_t code, uint32_t number, const uint8_t* payload, unsigned size);

        // Loss, retrying and counts of this unit (changed under the device lock).
        CKVX_HdwKvxReconnectState Reconnect;

    private:
        void TakeData(unsigned channel, CKVX_HdwHoe::t_HoePacket_Union& packet);
        void TakeReply(unsigned channel, CKVX_HdwHoe::t_HoePacket_Union& packet);

        hdw::units::CSorrelChannel* m_Channels;
    };

    using CUartPort = CKVX_HdwKvxSorrelUartPort;
    using CUartByteInBufferService = CKVX_HdwKvxSorrelByteInBufferService;
    using CUartByteOutBufferService = CKVX_HdwKvxSorrelByteOutBufferService;

    CKVX_HdwKvxSorrelDevice();
    ~CKVX_HdwKvxSorrelDevice() override;

    unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    unsigned HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;
    CKVX_HdwHoeDevice::CDeviceInstance* CreateDeviceInstance() override;
    unsigned CreateInstancePorts(unsigned instance) override;

    // The unit's link state and counts: 0, or 2 for no such instance.
    unsigned GetUnitLinkStatus(unsigned instance, CKVX_HdwKvxUnitLinkStatus& status);
    // True while the manager's reconnect is on and the unit is lost (its
    // ports neither send nor fail meanwhile).
    bool IsUnitLost(unsigned instance);
    // A port's Close of a lost unit: waits for a running attempt and, with
    // no port left open, ends the outage.
    void HoldAttempt(unsigned instance);
    void EndOutage(unsigned instance);
    // A port's Open of a lost unit, before its own request: tries the unit
    // at once (a running attempt waited for first) and opens the ports
    // already open again. 0 when the unit is up, 14 when it still does not
    // answer (a failed attempt counted, the retrying going on).
    unsigned ReviveForOpen(unsigned instance);

private:
    bool ReconnectEnabled();
    // The tick, device lock held.
    void WatchLink(CDeviceInstance& inst);
    void TakeOverLoss(CDeviceInstance& inst, uint64_t nowMs);
    void FinishAttempt(CDeviceInstance& inst, unsigned rc, uint64_t nowMs);
    // On the attempt thread: the session again, then every open port.
    unsigned AttemptLink(CDeviceInstance& inst, const std::vector<CUartPort*>& ports);
};

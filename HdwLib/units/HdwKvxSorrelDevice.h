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
//     CKVX_HdwManager manager;
//     manager.AttachDevice(new CKVX_HdwKvxSorrelDevice);
//     CKVX_HdwManager::CInitPortDesc link(9, "udp:192.168.0.20:55009");
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);

#include <HdwLib/links/HdwHoeDevice.h>
#include <HdwLib/units/KvxSorrelServices.h>
#include <HdwLib/units/KvxSorrelUartPort.h>

#include <cstdint>

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
    CKVX_HdwHoeDevice::CDeviceInstance* CreateDeviceInstance() override;
    unsigned CreateInstancePorts(unsigned instance) override;
};

#pragma once
// A serial unit reached as a byte stream in UDP datagrams: whatever is
// written goes to the unit's address in one datagram, whatever the unit
// sends from that address is queued for reading. Used to drive unit
// emulators and serial-over-UDP gateways like a serial unit.
//
// Device code 101 (no unit driver uses it). Enumeration takes the explicit
// "udp:HOST:PORT" links of this device code, one instance each (a byte
// stream has no handshake to probe, so a well-formed link is taken as it is;
// malformed or non-UDP links get Result 2). Every instance has one UART port
// (CUdpUartPort, channel "0") that takes the byte input and output services;
// its line settings have no effect on a datagram link. The output service
// sends at most one datagram of up to 4096 bytes per tick.
//
// Open(instance) binds a local socket (any free port); the tick's start pass
// moves the datagrams that arrived into the instance's receive queue (one
// receive call per datagram, at most MaxDatagramsPerTick).

#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxList.h>
#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/links/HdwByteLine.h>
#include <HdwLib/links/HdwLineByteServices.h>
#include <HdwLib/links/HdwUdpSocket.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwUdpEmulatorDevice : public CKVX_HdwDevice {
public:
    static constexpr uint64_t UdpEmulatorDeviceCode = 101;
    // Largest datagram taken from the unit.
    static constexpr unsigned MaxDatagram = 65507;
    // Datagrams taken from one unit per tick at most.
    static constexpr unsigned MaxDatagramsPerTick = 64;

    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwDevice::CDeviceInstance {
    public:
        CDeviceInstance();
        ~CDeviceInstance() override;

        CKVX_IpAddress UnitAddress;
        unsigned short UnitPort = 0;
        CKVX_HdwUdpSocket Socket;
        // Bytes from the unit not read yet; guarded by the instance lock.
        CKVX_List<unsigned char> RxList;
    };

    // The port's byte services (HdwLineByteServices.h).
    using CByteInBufferService = CKVX_HdwLineByteInBufferService;
    using CByteOutBufferService = CKVX_HdwLineByteOutBufferService;

    // The instance's byte stream as a UART port.
    class HDWLIB_EXPORT CUdpUartPort : public CKVX_HdwUartPort, public CKVX_HdwByteLine {
    public:
        CUdpUartPort(CKVX_HdwObject* device, unsigned deviceInstance);
        ~CUdpUartPort() override;

        // The byte services, types 2 and 3, one of each: 10 for any other
        // type, 26 for a second service of a type.
        unsigned EnableService(
            unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

        // The byte stream as the byte services use it (in the tick, under
        // the device lock): the receive queue, and one datagram per write.
        bool LineIsOpen() override;
        unsigned LineRead(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead) override;
        unsigned LineWriteRoom() override;
        unsigned LineWrite(const unsigned char* data, unsigned count, unsigned& written) override;
        unsigned LineWriteTimeout() override;
        unsigned LineQueued() override;

    private:
        CDeviceInstance* Instance();
    };

    CKVX_HdwUdpEmulatorDevice();
    ~CKVX_HdwUdpEmulatorDevice() override;

    // The argument is ignored: one instance per explicit link.
    unsigned Init(unsigned instanceCount) override;
    // Binds the instance's socket (0 when already open; 13 when it cannot be made).
    unsigned Open(unsigned instance) override;
    // Closes the socket when no port of the unit remains open.
    unsigned Close(unsigned instance) override;
    // Moves what the unit sent into the receive queue; 14 when the socket fails.
    unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t ticks) override;

    // The byte stream of an open instance: 2 no such instance, 19 not open,
    // 13 the send failed, 2 for more than MaxDatagram bytes.
    unsigned UartWrite(unsigned instance, const unsigned char* data, unsigned count);
    unsigned UartRead(unsigned instance, unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned UartGetReadBufferBytes(unsigned instance, unsigned& count);

    CDeviceInstance* GetEmulatorInstance(unsigned instance);

private:
    unsigned char* m_RxBuffer; // one datagram, used on the timer thread
};

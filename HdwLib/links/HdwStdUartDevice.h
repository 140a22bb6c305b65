#pragma once
// The PC's own serial ports (Linux: /dev/ttyS* with a real UART behind it,
// /dev/ttyUSB*, /dev/ttyACM*; Windows: the COM ports) and explicit serial
// links, each presented as one UART port (channel "0") of its own instance.
//
// Device code 100 (no unit driver uses it). Enumeration: the explicit links
// that name a serial device are tried by opening them once with the default
// line settings (Result 0, or 14 when that fails); a scan adds every serial
// port the system lists, without opening it. Identity: the USB serial number
// and revision of a bridge, otherwise the port name and "".
//
// The line is opened with the port's own settings when the port opens (the
// instance's OpenPort) and closed when it closes. The port takes the byte
// input and output services (types 2 and 3); it also
// offers Read and Write of bytes directly, which bypass the services.

#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/links/HdwByteLine.h>
#include <HdwLib/links/HdwLineByteServices.h>
#include <HdwLib/links/Uart.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwStdUartDevice : public CKVX_HdwDevice {
public:
    static constexpr uint64_t StdUartDeviceCode = 100;

    class HDWLIB_EXPORT CDeviceInstance : public CKVX_HdwDevice::CDeviceInstance {
    public:
        CDeviceInstance();
        // Closes the line if it is still open.
        ~CDeviceInstance() override;

        // Opens the line with the port's CKVX_HdwUartPort::CParameters (the
        // defaults for any other record): 0, or 14 when it cannot be opened
        // or configured. A port that is already open keeps its line (0).
        unsigned OpenPort(CKVX_HdwPort* port, CKVX_HdwPort::CParameters* params) override;
        unsigned ClosePort(CKVX_HdwPort* port) override;

        CUart Uart;
        CKVX_String PortName;
    };

    // The port's byte services (HdwLineByteServices.h).
    using CByteInBufferService = CKVX_HdwLineByteInBufferService;
    using CByteOutBufferService = CKVX_HdwLineByteOutBufferService;

    // One serial port as a UART port.
    class HDWLIB_EXPORT CStdUartPort : public CKVX_HdwUartPort, public CKVX_HdwByteLine {
    public:
        CStdUartPort(CKVX_HdwObject* device, unsigned deviceInstance);
        ~CStdUartPort() override;

        // The byte services, types 2 and 3, one of each: 10 for any other
        // type, 26 for a second service of a type.
        unsigned EnableService(
            unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;

        // Bytes through the line, under the device lock; 19 while the port
        // is closed. Write waits up to the open parameters' Timeout (ms).
        unsigned Read(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
        unsigned Write(unsigned char* data, unsigned count);
        unsigned GetReadBufferBytes(unsigned& count);

        // The line as the byte services use it (in the tick, under the
        // device lock). A write takes what the line takes at once, no more
        // than leaves OutputHighWater bytes queued; the output service fails
        // when the line takes nothing for the open parameters' Timeout.
        bool LineIsOpen() override;
        unsigned LineRead(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead) override;
        unsigned LineWriteRoom() override;
        unsigned LineWrite(const unsigned char* data, unsigned count, unsigned& written) override;
        unsigned LineWriteTimeout() override;
        unsigned LineQueued() override;

        // Most bytes left in the driver's output queue by the output service.
        static constexpr unsigned OutputHighWater = 4096;

    private:
        CUart* Line();
    };

    CKVX_HdwStdUartDevice();
    ~CKVX_HdwStdUartDevice() override;

    // The argument is ignored: the instances are the ports found (see above).
    unsigned Init(unsigned instanceCount) override;
    // Marks the instance open (the line itself opens with its port); 2 when
    // there is no such instance.
    unsigned Open(unsigned instance) override;
    unsigned Close(unsigned instance) override;

    CDeviceInstance* GetStdInstance(unsigned instance);
};

#pragma once
// Generic UART port: holds the line settings that Open takes. Unit drivers
// and the PC serial-port device derive from it and do the work.

#include <HdwLib/framework/HdwPort.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwUartPort : public CKVX_HdwPort {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwPort::CParameters {
    public:
        // Parity codes.
        static constexpr uint8_t ParityNone = 0, ParityOdd = 1, ParityEven = 2, ParityMark = 3, ParitySpace = 4;
        // Stop-bit codes.
        static constexpr uint8_t StopBitsOne = 0, StopBitsOneAndHalf = 1, StopBitsTwo = 2;
        // Flow-control bits.
        static constexpr uint8_t FlowDtrDsr = 0x01, FlowRtsCts = 0x02, FlowXonXoff = 0x04;

        CParameters() { PortNum = 0; }
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BaudRate = 9600;
        uint8_t Parity = ParityNone;
        uint8_t StopBits = StopBitsOne;
        uint8_t DataBits = 8;
        uint8_t FlowControl = 0;
    };

    CKVX_HdwUartPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwUartPort() override;

    unsigned GetParameters(CKVX_HdwPort::CParameters* params) override;
    // Stores the line settings (a CParameters of this class) before the unit is asked.
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;

    const CParameters& GetUartParameters() const { return m_Parameters; }

protected:
    CParameters m_Parameters;
};

#pragma once
// One UART of a Sorrel unit, reached with the HOE port packets (port type 1,
// channel = UART number). Open sends Open port with the line settings and
// waits for the unit's answer (settings the unit cannot run answer 2 before
// anything is sent); Close sends Close port. While open the port sends a port
// keep-alive when it sent nothing else for 250 ms, and fails its services
// when the unit said nothing about it for the link time-out. Its services:
// byte input, byte output and signals, one of each.

#include <HdwLib/bus/HdwUartPort.h>

#include <cstdint>
#include <vector>

namespace hdw::units {
struct CSorrelChannel;
} // namespace hdw::units

class HDWLIB_EXPORT CKVX_HdwKvxSorrelUartPort : public CKVX_HdwUartPort {
public:
    CKVX_HdwKvxSorrelUartPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CKVX_HdwKvxSorrelUartPort() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;

    unsigned GetChannel() const { return m_Channel; }
    // The host side of this UART (null when the port belongs to no Sorrel).
    hdw::units::CSorrelChannel* GetSorrelChannel() const;
    // A port packet of this UART to the unit: 0, 14 without a session.
    unsigned SendPortPacket(uint32_t code, uint32_t number, const uint8_t* payload, unsigned size);
    // Sends a request up to three times, 150 ms apart, and waits up to
    // 500 ms for its reply: 0 and the reply's payload, or 14.
    unsigned Request(uint32_t code, const uint8_t* payload, unsigned size, std::vector<uint8_t>& reply);
    // Moves the bytes the receive thread took into the byte input service
    // and tells the signal service how many (the tick, under the device lock).
    void MoveReceived();
    // The tick's last act: the signal service shows what the tick posted.
    void PublishSignals();

protected:
    unsigned m_Channel;
};

#pragma once
// MIL-STD-1553 single remote terminal (service type 11). This class checks
// and keeps the terminal's description, the application's transmit data
// updates and status bits, and the accesses the unit reports until they are
// read; the operations that talk to the unit answer 8 here and are
// overridden by the unit driver, which calls this class's version first
// where it does work.
//
// The last whole message received on each receive subaddress is kept apart
// and copied out under the device lock, so ReadSubaddress never sees half of
// one message and half of the next.
//
// Lock rule: every member below is read and written under the device lock.

#include <HdwLib/bus/HdwMilStd1553Message.h>
#include <HdwLib/bus/HdwMilStd1553RemoteTerminal.h>
#include <HdwLib/bus/HdwMilStd1553Service.h>

#include <cstdint>
#include <deque>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwMilStd1553SingleRtService : public CKVX_HdwMilStd1553Service {
public:
    explicit CKVX_HdwMilStd1553SingleRtService(CKVX_HdwObject* port);
    ~CKVX_HdwMilStd1553SingleRtService() override;

    unsigned Start() override;
    unsigned Stop() override;

    // Check `rt` (2), 10 while running, and keep it; the unit driver then
    // writes the buffers, or the subaddress and mode-code tables.
    virtual unsigned BuildBufferInit(const CKVX_HdwMilStd1553RemoteTerminal& rt);
    virtual unsigned BuildSubaddressConfiguration(const CKVX_HdwMilStd1553RemoteTerminal& rt);
    // Forgets both; 10 while running.
    virtual unsigned DestroyConfiguration();
    // Unit driver: starts and stops the terminal.
    virtual unsigned RunRt();
    virtual unsigned StopRt();

    // New words for transmit subaddress 1..30 (at most 32; the rest of the
    // buffer keeps its words), sent as one SRAM record: a transfer sends the
    // old words or the new ones, never a mix. 2 for a bad subaddress or count.
    unsigned UpdateTransmitData(unsigned subaddress, const std::vector<uint16_t>& words);
    // Status word bits (t_StatusBits): 2 above bit 4; taken by the unit at
    // once while the terminal runs.
    unsigned SetStatusBits(uint8_t bits);
    // The last whole message received without error on receive subaddress
    // 1..30: 2 bad subaddress, 4 none yet, 29/15 not running.
    unsigned ReadSubaddress(unsigned subaddress, CKVX_HdwMilStd1553Message& message);
    // Read: the accesses the unit reported, in order.

protected:
    // The driver's receive path for one access or monitor record; an access
    // that brought the terminal data on receive subaddress 1..30 names it
    // (else 0) and becomes that subaddress's last message.
    void AppendAccess(CKVX_HdwMilStd1553Message&& message, bool monitor, unsigned receiveSubaddress);
    // The checks of both Build operations; keeps `rt` and sets `built`.
    unsigned KeepTerminal(const CKVX_HdwMilStd1553RemoteTerminal& rt, bool& built);

    CKVX_HdwMilStd1553RemoteTerminal m_Terminal;
    bool m_HaveBuffers = false;
    bool m_HaveTables = false;
    bool m_StatusChanged = false;
    struct STransmitUpdate {
        unsigned Subaddress = 0;
        std::vector<uint16_t> Words;
    };
    std::deque<STransmitUpdate> m_TransmitUpdates;
    CKVX_HdwMilStd1553Message m_LastReceived[32];
    bool m_HaveReceived[32] = {};
};

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
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <deque>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwMilStd1553SingleRtService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // Accesses (and monitor records) kept until read, each list (0 = no
        // bound); a full list drops its oldest.
        uint32_t BufferSize = 10000;
    };

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

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    unsigned GetParameters(CParameters* params);
    unsigned SetParameters(CParameters* params);

    // New words for transmit subaddress 1..30 (at most 32; the rest of the
    // buffer keeps its words), sent as one SRAM record: a transfer sends the
    // old words or the new ones, never a mix. 2 for a bad subaddress or count.
    unsigned UpdateTransmitData(unsigned subaddress, const std::vector<uint16_t>& words);
    // Status word bits (t_StatusBits): 2 above bit 4; taken by the unit at
    // once while the terminal runs.
    unsigned SetStatusBits(uint8_t bits);
    // Appends up to maxCount accesses the unit reported, in order: 29
    // stopped, 15 failed.
    unsigned Read(CKVX_HdwMilStd1553Buffer& buffer, unsigned maxCount, unsigned& readCount);
    // The last whole message received without error on receive subaddress
    // 1..30: 2 bad subaddress, 4 none yet, 29/15 not running.
    unsigned ReadSubaddress(unsigned subaddress, CKVX_HdwMilStd1553Message& message);
    // Every transfer the channel's monitor saw.
    unsigned ReadMonitor(CKVX_HdwMilStd1553Buffer& buffer, unsigned maxCount, unsigned& readCount);
    // Records dropped because a list was full, plus those the unit flagged
    // as dropped, since Start.
    uint64_t GetLostCount();
    bool IsRunning();

protected:
    // The driver's receive path for one access or monitor record; an access
    // that brought the terminal data on receive subaddress 1..30 names it
    // (else 0) and becomes that subaddress's last message.
    void AppendAccess(CKVX_HdwMilStd1553Message&& message, bool monitor, unsigned receiveSubaddress);

    uint32_t BufferSize = 10000;
    CKVX_HdwMilStd1553RemoteTerminal m_Terminal;
    bool m_HaveBuffers = false;
    bool m_HaveTables = false;
    bool m_Running = false;
    bool m_StatusChanged = false;
    struct STransmitUpdate {
        unsigned Subaddress = 0;
        std::vector<uint16_t> Words;
    };
    std::deque<STransmitUpdate> m_TransmitUpdates;
    std::deque<CKVX_HdwMilStd1553Message> m_Accesses;
    std::deque<CKVX_HdwMilStd1553Message> m_Monitor;
    CKVX_HdwMilStd1553Message m_LastReceived[32];
    bool m_HaveReceived[32] = {};
    uint64_t m_Lost = 0;
};

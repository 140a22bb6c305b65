#include "Mil1553Rt.h"

namespace hdwsim::mil {

namespace {
enum : uint16_t { EntryLegal = 1, EntryReport = 2, EntryBroadcast = 4 };
enum : unsigned { ModeTransmitStatus = 2, ModeTransmitLastCommand = 18 };

uint16_t& At(uint16_t* sram, unsigned address)
{
    return sram[address % SramWordsPerChannel];
}
} // namespace

void RtResponder::Reset()
{
    *this = RtResponder{};
}

uint16_t RtResponder::StatusWord(const Setup& setup, bool error) const
{
    const uint8_t b = setup.StatusBits;
    uint16_t s = static_cast<uint16_t>(setup.Address << 11);
    if (b & 1)
        s |= StatusBusy;
    if (b & 2)
        s |= StatusServiceRequest;
    if (b & 4)
        s |= StatusSubsystem;
    if (b & 8)
        s |= StatusTerminalFlag;
    if (b & 16)
        s |= StatusBusControl;
    if (error || m_PendingError)
        s |= StatusMessageError;
    if (m_PendingBroadcast)
        s |= StatusBroadcastReceived;
    return s;
}

void RtResponder::Conclude(Reply& r, const Setup& setup, Command c, bool legal)
{
    if (c.IsBroadcast()) {
        // Never answered: reported in the next status word.
        (legal ? m_PendingBroadcast : m_PendingError) = true;
        return;
    }
    r.Responds = true;
    r.Status = StatusWord(setup, !legal);
    m_LastStatus = r.Status;
    m_LastCommand = c.Word;
    m_PendingError = m_PendingBroadcast = false;
}

Reply RtResponder::Answer(uint16_t* sram, const Setup& setup, Command c, const std::vector<uint16_t>& received)
{
    Reply r;
    r.ResponseUs = setup.ResponseUs;
    // A receive command with the wrong number of data words: no answer,
    // nothing stored, message error in the next status word.
    if (!c.Transmit() && received.size() != c.DataWords()) {
        m_PendingError = true;
        return r;
    }
    if (c.ModeCode())
        return ModeCode(sram, setup, c, received);

    const uint16_t entry = At(sram, SubaddressTable + 2 * (32 * (c.Transmit() ? 1 : 0) + c.Subaddress()));
    const unsigned buffer = At(sram, SubaddressTable + 2 * (32 * (c.Transmit() ? 1 : 0) + c.Subaddress()) + 1);
    const bool legal = (entry & EntryLegal) && (!c.IsBroadcast() || (entry & EntryBroadcast));
    const bool busy = (setup.StatusBits & 1) != 0;
    r.Report = legal && (entry & EntryReport);
    if (legal && !busy) {
        if (c.Transmit())
            for (unsigned i = 0; i < c.DataWords(); ++i)
                r.Data.push_back(At(sram, buffer + i));
        else
            for (unsigned i = 0; i < received.size(); ++i)
                At(sram, buffer + i) = received[i];
    }
    Conclude(r, setup, c, legal);
    return r;
}

Reply RtResponder::ModeCode(uint16_t* sram, const Setup& setup, Command c, const std::vector<uint16_t>& received)
{
    Reply r;
    r.ResponseUs = setup.ResponseUs;
    const unsigned code = c.CountField();
    uint16_t& entry = At(sram, ModeCodeTable + 2 * code);
    uint16_t& word = At(sram, ModeCodeTable + 2 * code + 1);
    // Transmit status word and transmit last command are the unit's own:
    // always legal, answered with the last status word, changing nothing.
    if (code == ModeTransmitStatus || code == ModeTransmitLastCommand) {
        r.Report = (entry & EntryReport) != 0;
        if (c.IsBroadcast())
            return r;
        r.Responds = true;
        r.Status = m_LastStatus ? m_LastStatus : StatusWord(setup, false);
        if (code == ModeTransmitLastCommand)
            r.Data.push_back(m_LastCommand);
        return r;
    }
    const bool legal = (entry & EntryLegal) && (!c.IsBroadcast() || !c.Transmit());
    r.Report = legal && (entry & EntryReport);
    if (legal && c.DataWords() == 1) {
        if (c.Transmit())
            r.Data.push_back(word);
        else
            word = received[0];
    }
    Conclude(r, setup, c, legal);
    return r;
}

} // namespace hdwsim::mil

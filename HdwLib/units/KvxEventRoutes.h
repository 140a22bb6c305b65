#pragma once
// Which open port of a unit takes the events of each (port type, channel).
//
// A reception carries dozens of events, and the port list is the same for
// all of them (it changes only under the device lock, which the reception
// holds). The driver fills this table from the list when it starts handing
// out the events of a reception's first frame, looks each event's port up in
// it, and clears it at the end of the reception. A pair that several ports
// share, a channel beyond the table or a pass without a table goes the long
// way, through ProcessEventHandlers, so the result is always the one the list
// walk gives.
//
// Events name their channel in decimal ("0" ... "15"); a port whose channel
// id is any other text can take no event of these channels and is left out.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/framework/HdwPort.h>

#include <array>
#include <cstdint>

class CKVX_HdwEventRoutes {
public:
    static constexpr unsigned Types = 16;
    static constexpr unsigned Channels = 16;

    // Takes the ports of `ports` (the instance's open ones), in list order.
    void Build(const CKVX_List<CKVX_HdwPort*>& ports)
    {
        m_Count.fill(0);
        for (CKVX_HdwPort* port : ports) {
            if (!port)
                continue;
            const unsigned type = port->GetPortType();
            const int channel = ChannelNumber(port->GetChannelIdRef());
            if (type >= Types || channel < 0)
                continue;
            const unsigned slot = type * Channels + unsigned(channel);
            if (m_Count[slot] < 2)
                ++m_Count[slot];
            m_Port[slot] = port;
        }
        m_ListLength = ports.GetLength();
        m_Valid = true;
    }

    void Clear() { m_Valid = false; }
    bool IsValid() const { return m_Valid; }

    // True when the table answers for the pair: `port` is then its one port,
    // or null when no port takes it. False: walk the list.
    bool Find(const CKVX_List<CKVX_HdwPort*>& ports, unsigned type, unsigned channel, CKVX_HdwPort*& port) const
    {
        if (!m_Valid || type >= Types || channel >= Channels || ports.GetLength() != m_ListLength)
            return false;
        const unsigned slot = type * Channels + channel;
        if (m_Count[slot] > 1)
            return false;
        port = m_Count[slot] ? m_Port[slot] : nullptr;
        return true;
    }

    // The channel number whose decimal text `id` is, or -1. Stricter than
    // the ports' own hdw::units::ChannelNumber, which reads "07" as 7 and
    // "A" as 0: an event of channel 7 names it "7" and only a port of that
    // exact text takes it.
    static int ChannelNumber(const CKVX_String& id)
    {
        const char* s = id.c_str();
        const unsigned length = id.GetLength();
        auto digit = [](char c) { return c >= '0' && c <= '9'; };
        if (length == 1 && digit(s[0]))
            return s[0] - '0';
        if (length == 2 && s[0] >= '1' && s[0] <= '9' && digit(s[1])) {
            const int n = (s[0] - '0') * 10 + (s[1] - '0');
            return n < int(Channels) ? n : -1;
        }
        return -1;
    }

private:
    std::array<CKVX_HdwPort*, Types * Channels> m_Port{};
    std::array<uint8_t, Types * Channels> m_Count{};
    unsigned m_ListLength = 0;
    bool m_Valid = false;
};

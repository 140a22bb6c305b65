#include "HostFrameParser.h"

#include "Crc16.h"

namespace hdwsim {

void HostFrameParser::Reset()
{
    m_State = State::Hunt;
    m_Frame.clear();
}

void HostFrameParser::Feed(const uint8_t* data, size_t size, const FrameHandler& onFrame, Stats& stats)
{
    for (size_t i = 0; i < size; ++i) {
        const uint8_t b = data[i];
        switch (m_State) {
        case State::Hunt:
            if (b == 0xA5) {
                m_Frame.clear();
                m_Frame.push_back(b);
                m_State = State::LengthLow;
            } else {
                ++stats.Discarded;
            }
            break;
        case State::LengthLow:
            m_Frame.push_back(b);
            m_Length = b;
            m_State = State::LengthHigh;
            break;
        case State::LengthHigh:
            m_Frame.push_back(b);
            m_Length |= static_cast<size_t>(b) << 8;
            if (m_Length == 0 || m_Length > MaxPayload) {
                // Not a frame the unit could take: the start byte was noise.
                // Rescan the two length bytes for a start byte.
                stats.Discarded += 1;
                const uint8_t rescan[2] = {m_Frame[1], m_Frame[2]};
                m_State = State::Hunt;
                m_Frame.clear();
                Feed(rescan, 2, onFrame, stats);
            } else {
                m_Frame.reserve(m_Length + 3);
                m_State = State::Payload;
            }
            break;
        case State::Payload:
            m_Frame.push_back(b);
            if (m_Frame.size() == m_Length + 3)
                m_State = State::CrcLow;
            break;
        case State::CrcLow:
            m_Crc = b;
            m_State = State::CrcHigh;
            break;
        case State::CrcHigh:
            m_Crc = static_cast<uint16_t>(m_Crc | (b << 8));
            m_State = State::Hunt;
            if (Crc16(m_Frame.data(), m_Frame.size()) == m_Crc) {
                ++stats.GoodFrames;
                onFrame(m_Frame.data() + 3, m_Length);
            } else {
                ++stats.BadCrc;
            }
            m_Frame.clear();
            break;
        }
    }
}

} // namespace hdwsim

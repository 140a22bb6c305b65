#include "EventFramer.h"

#include "Crc16.h"

#include <algorithm>

namespace hdwsim {

namespace {
constexpr size_t FrameOverhead = 7; // start byte, length, count, CRC
constexpr unsigned MaxEventsPerFrame = 0xFFF;
} // namespace

// A record is at most 256 bytes (L is one byte), so every frame holds one.
EventFramer::EventFramer(size_t maxFrameBytes) : m_MaxFrameBytes(std::max<size_t>(maxFrameBytes, 300)) {}

void EventFramer::AddEvent(unsigned type, unsigned subField, const uint8_t* params, size_t size)
{
    m_Records.push_back(static_cast<uint8_t>(size + 1));
    m_Records.push_back(TypeByte(type, subField));
    ++m_Waiting[TypeByte(type, subField)];
    m_Records.insert(m_Records.end(), params, params + size);
    m_Ends.push_back(m_Records.size());
}

void EventFramer::Flush(uint64_t readyNs, Counters& counters)
{
    size_t begin = 0;
    size_t prev = 0;
    unsigned count = 0;
    for (size_t end : m_Ends) {
        if (count > 0 && (end - begin + FrameOverhead > m_MaxFrameBytes || count == MaxEventsPerFrame)) {
            Close(m_Records.data() + begin, prev - begin, count, readyNs, counters);
            begin = prev;
            count = 0;
        }
        ++count;
        prev = end;
    }
    if (count > 0)
        Close(m_Records.data() + begin, prev - begin, count, readyNs, counters);
    m_Records.clear();
    m_Ends.clear();
}

void EventFramer::Close(const uint8_t* records, size_t size, unsigned count, uint64_t readyNs, Counters& counters)
{
    Frame f;
    f.ReadyNs = readyNs + m_DelayNs;
    // Frames leave in order: a later frame never overtakes an earlier one.
    if (!m_Queue.empty())
        f.ReadyNs = std::max(f.ReadyNs, m_Queue.back().ReadyNs);
    f.Bytes.reserve(m_Stray.size() + size + FrameOverhead);
    f.Bytes.insert(f.Bytes.end(), m_Stray.begin(), m_Stray.end());
    m_Stray.clear();
    const size_t start = f.Bytes.size();
    f.Bytes.push_back(0xA5);
    f.Bytes.push_back(static_cast<uint8_t>(size & 0xFF));
    f.Bytes.push_back(static_cast<uint8_t>((size >> 8) & 0x0F));
    f.Bytes.push_back(static_cast<uint8_t>(count & 0xFF));
    f.Bytes.push_back(static_cast<uint8_t>((count >> 8) & 0x0F));
    f.Bytes.insert(f.Bytes.end(), records, records + size);
    for (size_t at = 0; at + 1 < size; at += size_t(records[at]) + 1)
        f.Types.push_back(records[at + 1]);
    uint16_t crc = Crc16(f.Bytes.data() + start, f.Bytes.size() - start);
    if (m_CorruptFrames > 0) {
        --m_CorruptFrames;
        crc = static_cast<uint16_t>(crc ^ 0x5A5A);
    }
    f.Bytes.push_back(static_cast<uint8_t>(crc & 0xFF));
    f.Bytes.push_back(static_cast<uint8_t>(crc >> 8));
    counters.EventsSent += count;
    m_Queue.push_back(std::move(f));
}

size_t EventFramer::Take(uint64_t nowNs, size_t maxBytes, std::vector<uint8_t>& out, Counters& counters)
{
    size_t taken = 0;
    size_t bytes = 0;
    while (!m_Queue.empty() && m_Queue.front().ReadyNs <= nowNs) {
        const std::vector<uint8_t>& b = m_Queue.front().Bytes;
        if (taken > 0 && bytes + b.size() > maxBytes)
            break;
        out.insert(out.end(), b.begin(), b.end());
        bytes += b.size();
        ++taken;
        ++counters.FramesSent;
        Release(m_Queue.front());
        m_Queue.pop_front();
    }
    return taken;
}

uint64_t EventFramer::NextReadyNs() const
{
    return m_Queue.empty() ? UINT64_MAX : m_Queue.front().ReadyNs;
}

void EventFramer::Discard(Counters& counters)
{
    counters.FramesLost += m_Queue.size();
    for (const Frame& f : m_Queue)
        Release(f);
    m_Queue.clear();
}

void EventFramer::Release(const Frame& f)
{
    for (uint8_t t : f.Types)
        --m_Waiting[t];
}

void EventFramer::InsertStray(const std::vector<uint8_t>& bytes)
{
    const size_t room = MaxStrayBytes - std::min(MaxStrayBytes, m_Stray.size());
    m_Stray.insert(
        m_Stray.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(room, bytes.size())));
}

} // namespace hdwsim

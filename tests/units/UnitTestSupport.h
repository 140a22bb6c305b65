#pragma once
// A test driver, a recording port, and the unit's side written out by hand (not by the code under test).

#include <HdwLib/HdwLib.h>

#include "support/BitwiseCrc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace unittest {

using Base = CKVX_HdwKvxUsbCommandDevice;

// Every command and event type; 2 UART, 4 ARINC 429 TX, 4 RX, 2 CAN, 2 MIL-STD-1553 channels.
inline Base::CUnitProfile FullProfile()
{
    Base::CUnitProfile p;
    // Event types 0-3 and 5-10.
    std::tie(p.UartChannels, p.AtxChannels, p.ArxChannels, p.CanChannels, p.MilStd1553Channels, p.Commands, p.Events,
        p.LinkBaudRate) = std::tuple(2, 4, 4, 2, 2, 0x7FFF, 0x7EF, 115200);
    return p;
}

class TestUnit : public Base {
public:
    explicit TestUnit(const CUnitProfile& profile = FullProfile()) : Base(profile) {}

    // The unit's deadlines read this clock when a test sets it (ms).
    uint64_t GetUnitTime() override { return SteppedTime ? *SteppedTime : Base::GetUnitTime(); }
    std::optional<uint64_t> SteppedTime;

    // One instance on `portName` (not opened), without a probe.
    void AddInstance(const std::string& portName = "")
    {
        CDeviceInstance* inst = CreateDeviceInstance();
        inst->PortName = portName.c_str();
        inst->Link = portName.c_str();
        std::vector<CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance*> found{inst};
        InstallInstances(found);
    }
    CDeviceInstance* Inst(unsigned i = 0) { return GetProtocolInstance(i); }

    using Base::ReceiveBytes;
};

// What a recording port was offered, with a copy of the event as its own class.
struct SeenEvent {
    unsigned Code = 0;
    std::string Channel;
    uint64_t TimeStamp = 0;
    uint64_t UnwrappedTime = 0;
    std::shared_ptr<const Base::CEvent> Copy;

    // The copy as event class E; a failure when it is of another class.
    template <class E>
    const E& As() const
    {
        static const E none;
        const E* e = dynamic_cast<const E*>(Copy.get());
        EXPECT_NE(e, nullptr) << "event " << Code << " is of another class";
        return e ? *e : none;
    }
};

class RecordingPort : public CKVX_HdwPort {
public:
    RecordingPort(TestUnit* device, unsigned instance, const char* channel, unsigned type)
        : CKVX_HdwPort(device, instance, channel)
    {
        m_PortType = type;
    }

    unsigned ProcessEvent(CKVX_HdwEvent* event) override
    {
        SeenEvent s{event->GetEventCode(), event->GetChannelId().c_str(), static_cast<Base::CEvent*>(event)->TimeStamp,
            static_cast<Base::CEvent*>(event)->GetUnwrappedTime(), nullptr};
        CopyAs<Base::CCriticalFailureEvent, Base::CArinc429RxEvent, Base::CArinc429TxEvent, Base::CStatusEvent,
            Base::CCanRxEvent, Base::CCanTxEvent, Base::CMilStd1553Event, Base::CUartRxEvent, Base::CUartTxEvent>(
            event, s.Copy);
        seen.push_back(s);
        return Result;
    }

    std::vector<SeenEvent> seen;
    unsigned Result = 0;

private:
    // Copies `event` as the first of the classes E that it is.
    template <class... E>
    static void CopyAs(CKVX_HdwEvent* event, std::shared_ptr<const Base::CEvent>& copy)
    {
        (void)((dynamic_cast<E*>(event) && (copy = std::make_shared<E>(*dynamic_cast<E*>(event)))) || ...);
    }
};

using testsupport::BitwiseCrc16;

inline void AppendCrc(std::vector<uint8_t>& frame)
{
    const uint16_t crc = BitwiseCrc16(frame.data(), frame.size());
    frame.push_back(uint8_t(crc & 0xFF));
    frame.push_back(uint8_t(crc >> 8));
}

// One event record: L, type byte, parameters (time stamp first).
inline std::vector<uint8_t> EventRecord(
    unsigned type, unsigned subField, uint32_t timeStamp, const std::vector<uint8_t>& fields)
{
    std::vector<uint8_t> r = {uint8_t(1 + 4 + fields.size()), uint8_t(type << 3 | subField), uint8_t(timeStamp),
        uint8_t(timeStamp >> 8), uint8_t(timeStamp >> 16), uint8_t(timeStamp >> 24)};
    r.insert(r.end(), fields.begin(), fields.end());
    return r;
}

inline std::vector<uint8_t> EchoRecord(uint16_t number)
{
    return EventRecord(0, 0, 0x01020304, {uint8_t(number & 0xFF), uint8_t(number >> 8)});
}

// An ARINC 429 receive record carrying `word` on `channel`.
inline std::vector<uint8_t> A429RxRecord(unsigned channel, uint32_t word, uint32_t timeStamp = 1000)
{
    return EventRecord(
        2, channel, timeStamp, {uint8_t(word), uint8_t(word >> 8), uint8_t(word >> 16), uint8_t(word >> 24), 0, 0});
}

// A unit frame around `records` with its CRC.
inline std::vector<uint8_t> UnitFrame(const std::vector<std::vector<uint8_t>>& records)
{
    std::vector<uint8_t> f = {0xA5, 0, 0, uint8_t(records.size() & 0xFF), uint8_t((records.size() >> 8) & 0x0F)};
    for (const auto& r : records)
        f.insert(f.end(), r.begin(), r.end());
    std::tie(f[1], f[2]) = std::tuple(uint8_t((f.size() - 5) & 0xFF), uint8_t(((f.size() - 5) >> 8) & 0x0F));
    AppendCrc(f);
    return f;
}

// A host frame: start byte, u16 payload length, the records, CRC.
inline std::vector<uint8_t> HostFrame(const std::vector<std::vector<uint8_t>>& records)
{
    std::vector<uint8_t> f = {0xA5, 0, 0};
    for (const auto& r : records)
        f.insert(f.end(), r.begin(), r.end());
    std::tie(f[1], f[2]) = std::tuple(uint8_t(f.size() - 3), uint8_t((f.size() - 3) >> 8));
    AppendCrc(f);
    return f;
}

// The records of an engine's (or a unit instance's) command list, in order.
inline std::vector<std::vector<uint8_t>> QueuedRecords(const CKVX_HdwKvxUnitEngine* engine)
{
    std::vector<std::vector<uint8_t>> out;
    for (const auto& c : engine->CommandList)
        out.push_back(c.Bytes);
    return out;
}

} // namespace unittest

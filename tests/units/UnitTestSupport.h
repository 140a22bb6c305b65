#pragma once
// A command-protocol driver for the unit tests, a port that records the
// events it is offered, and the unit side of the protocol written out by hand
// (CRC bit by bit, unit frames byte by byte) so that the tests do not lean on
// the code they check.

#include <HdwLib/HdwLib.h>
#include <HdwLib/units/KvxCommandDevice.h>

#include "support/BitwiseCrc.h"

#include <cstdint>
#include <string>
#include <vector>

namespace unittest {

using Base = CKVX_HdwKvxCommandDevice<CKVX_HdwFtdiUartBridgedDevice>;

// Every command and event type, and the channel counts of the
// multi-protocol unit: 2 UART, 4 ARINC 429 TX, 4 RX, 2 CAN, 2 MIL-STD-1553.
inline Base::CUnitProfile FullProfile()
{
    Base::CUnitProfile p;
    p.UartChannels = 2;
    p.AtxChannels = 4;
    p.ArxChannels = 4;
    p.CanChannels = 2;
    p.MilStd1553Channels = 2;
    p.Commands = 0x7FFF;
    p.Events = 0x7EF; // types 0-3 and 5-10
    return p;
}

class TestUnit : public Base {
public:
    explicit TestUnit(const CUnitProfile& profile = FullProfile())
    {
        m_Profile = profile;
        m_DeviceCode = 900;
        m_Manufacturer = "Test Manufacturer";
        m_ModelName = "Testunit";
        m_LinkParameters.BaudRate = 115200;
        m_LinkParameters.DataBits = 8;
    }
    ~TestUnit() override
    {
        DestroyPorts();
        DestroyDeviceList();
    }

    // One instance on `portName` (not opened), without a probe.
    void AddInstance(const std::string& portName = "")
    {
        std::vector<CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance*> found;
        CDeviceInstance* inst = CreateDeviceInstance();
        inst->PortName = portName.c_str();
        inst->Link = portName.c_str();
        found.push_back(inst);
        InstallInstances(found);
    }
    CDeviceInstance* Inst(unsigned i = 0) { return GetProtocolInstance(i); }

    using Base::FeedByte;
    using Base::FeedBytes;
};

// What a recording port was offered.
struct SeenEvent {
    unsigned Code = 0;
    std::string Channel;
    uint64_t TimeStamp = 0;
    // Decoded contents, by event type.
    CKVX_HdwArinc429Message Word;
    uint16_t AuxValue = 0;
    CKVX_HdwCanMessage Frame;
    uint8_t StatusKind = 0;
    uint32_t StatusWord = 0;
    uint8_t UartStatus = 0;
    std::vector<uint8_t> UartData;
    uint32_t ChunkCounter = 0;
    uint16_t Count = 0;
    unsigned FailureCode = 0;
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
        SeenEvent s;
        s.Code = event->GetEventCode();
        s.Channel = event->GetChannelId().c_str();
        s.TimeStamp = static_cast<Base::CEvent*>(event)->TimeStamp;
        switch (s.Code) {
        case Base::EventCriticalFailure:
            s.FailureCode = static_cast<Base::CCriticalFailureEvent*>(event)->FailureCode;
            break;
        case Base::EventA429Rx: {
            auto* e = static_cast<Base::CArinc429RxEvent*>(event);
            s.Word = e->Message;
            s.AuxValue = e->AuxValue;
            break;
        }
        case Base::EventA429Tx:
            s.Word = static_cast<Base::CArinc429TxEvent*>(event)->Message;
            break;
        case Base::EventStatus: {
            auto* e = static_cast<Base::CStatusEvent*>(event);
            s.StatusKind = e->Kind;
            s.StatusWord = e->StatusWord;
            break;
        }
        case Base::EventCanRx:
            s.Frame = static_cast<Base::CCanRxEvent*>(event)->Message;
            break;
        case Base::EventCanTx:
            s.Frame = static_cast<Base::CCanTxEvent*>(event)->Message;
            break;
        case Base::EventUartRx: {
            auto* e = static_cast<Base::CUartRxEvent*>(event);
            s.UartStatus = e->Status;
            s.UartData = e->Data;
            break;
        }
        case Base::EventUartTx: {
            auto* e = static_cast<Base::CUartTxEvent*>(event);
            s.ChunkCounter = e->ChunkCounter;
            s.Count = e->Count;
            break;
        }
        default: break;
        }
        seen.push_back(s);
        return Result;
    }

    std::vector<SeenEvent> seen;
    unsigned Result = 0;
};

using testsupport::BitwiseCrc16;

inline void AppendCrc(std::vector<uint8_t>& frame)
{
    const uint16_t crc = BitwiseCrc16(frame.data(), frame.size());
    frame.push_back(uint8_t(crc & 0xFF));
    frame.push_back(uint8_t(crc >> 8));
}

// One event record: L, type byte, parameters (time stamp first).
inline std::vector<uint8_t> EventRecord(unsigned type, unsigned subField, uint32_t timeStamp,
                                        const std::vector<uint8_t>& fields)
{
    std::vector<uint8_t> r;
    r.push_back(uint8_t(1 + 4 + fields.size()));
    r.push_back(uint8_t(type << 3 | subField));
    for (int i = 0; i < 4; ++i)
        r.push_back(uint8_t(timeStamp >> (8 * i)));
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
    return EventRecord(2, channel, timeStamp,
                       {uint8_t(word), uint8_t(word >> 8), uint8_t(word >> 16), uint8_t(word >> 24), 0, 0});
}

// A unit frame around `records` with its CRC.
inline std::vector<uint8_t> UnitFrame(const std::vector<std::vector<uint8_t>>& records)
{
    std::vector<uint8_t> body;
    for (const auto& r : records)
        body.insert(body.end(), r.begin(), r.end());
    std::vector<uint8_t> f;
    f.reserve(body.size() + 7);
    f = {0xA5, uint8_t(body.size() & 0xFF), uint8_t((body.size() >> 8) & 0x0F), uint8_t(records.size() & 0xFF),
         uint8_t((records.size() >> 8) & 0x0F)};
    f.insert(f.end(), body.begin(), body.end());
    AppendCrc(f);
    return f;
}

// The records of the instance's command list, in order.
inline std::vector<std::vector<uint8_t>> QueuedRecords(Base::CDeviceInstance* inst)
{
    std::vector<std::vector<uint8_t>> out;
    for (const Base::CCommand& c : inst->CommandList)
        out.push_back(c.Bytes);
    return out;
}

} // namespace unittest

#pragma once
// A Halden driver with one unit instance fed by the caller instead of a link
// (Ethernet mode with no session), for benchmarks and fuzzing of the receive path.

#include <HdwLib/HdwLib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace halden_feed {

class CFeedDevice : public CKVX_HdwKvxHaldenDevice {
public:
    CFeedDevice()
    {
        std::vector<CKVX_HdwFtdiUartBridgedDevice::CDeviceInstance*> found{CreateDeviceInstance()};
        InstallInstances(found);
        Inst = static_cast<CDeviceInstance*>(GetProtocolInstance(0));
        Inst->EthernetMode = 1;
    }
    ~CFeedDevice() override
    {
        for (CKVX_HdwPort* p : m_Attached)
            DetachPortFromHdwTimer(0, p);
    }

    // Gives the port a running service of type S that takes the instance's events.
    template <class S>
    S* AddService(unsigned portType, unsigned channel)
    {
        CPortDescriptorsVector* v = nullptr;
        GetPortDescriptor(0, &v);
        for (CPortDescriptor& d : *v) {
            if (d.PortType != portType || d.Channel != channel)
                continue;
            auto* s = new S(d.Port);
            d.Port->GetServiceList() += s;
            s->Start();
            // A port takes the events once, however many services it has.
            if (std::find(m_Attached.begin(), m_Attached.end(), d.Port) == m_Attached.end()) {
                AttachPortToHdwTimer(0, d.Port);
                m_Attached.push_back(d.Port);
            }
            return s;
        }
        return nullptr;
    }

    void Push(const uint8_t* data, size_t size)
    {
        CKVX_MutexLocker lock(Inst->RxMutex);
        for (size_t i = 0; i < size; ++i)
            Inst->RxList += data[i];
    }

    // The tick's receive step: ProcessReception under the device lock.
    unsigned Receive()
    {
        DeviceLock(0);
        const unsigned rc = ProcessReception(0);
        DeviceUnlock(0);
        return rc;
    }

    // The same machine fed straight from memory (no link read).
    unsigned Feed(const uint8_t* data, size_t size)
    {
        DeviceLock(0);
        const unsigned result = ReceiveBytes(0, Inst, data, unsigned(size));
        DeviceUnlock(0);
        return result;
    }

    CDeviceInstance* Inst = nullptr;

private:
    std::vector<CKVX_HdwPort*> m_Attached;
};

// A unit frame (start byte, length, event count, records, CRC) around the records.
inline std::vector<uint8_t> UnitFrame(const CFeedDevice& device, const std::vector<std::vector<uint8_t>>& records)
{
    std::vector<uint8_t> f{0xA5, 0, 0, uint8_t(records.size()), uint8_t(records.size() >> 8)};
    for (const auto& r : records)
        f.insert(f.end(), r.begin(), r.end());
    const unsigned length = unsigned(f.size() - 3);
    f[1] = uint8_t(length);
    f[2] = uint8_t((length >> 8) & 0x0F);
    const uint16_t crc = device.CalcCRC16(f.data(), unsigned(f.size()));
    f.push_back(uint8_t(crc));
    f.push_back(uint8_t(crc >> 8));
    return f;
}

// An ARINC 429 receive record (type 2): type byte, time stamp, word, a 16-bit value.
inline std::vector<uint8_t> A429RxRecord(unsigned ch, uint32_t time, uint32_t word)
{
    return {11, uint8_t(2u << 3 | ch), uint8_t(time), uint8_t(time >> 8), uint8_t(time >> 16), uint8_t(time >> 24),
        uint8_t(word), uint8_t(word >> 8), uint8_t(word >> 16), uint8_t(word >> 24), 0, 0};
}

// A CAN receive record (type 6): an extended frame with eight data bytes.
inline std::vector<uint8_t> CanRxRecord(unsigned ch, uint32_t time, uint32_t id)
{
    std::vector<uint8_t> r{18, uint8_t(6u << 3 | ch), uint8_t(time), uint8_t(time >> 8), uint8_t(time >> 16),
        uint8_t(time >> 24), uint8_t(0x80 | 8), uint8_t(id >> 21), uint8_t(id >> 13), uint8_t(id >> 5),
        uint8_t(id << 3)};
    for (unsigned i = 0; i < 8; ++i)
        r.push_back(uint8_t(id + i));
    return r;
}

} // namespace halden_feed

#pragma once
// An emulated Sorrel on 127.0.0.1 and an application reaching its six UARTs.
#include "UnitRig.h"

namespace sorrel_test {

using halden_test::Pattern;

using testsupport::WaitUntil;

// Room for everything a test sends, so that a slow reader never drops.
constexpr uint32_t kInBufferBytes = 8u << 20;

// Bytes a UART of the unit may hold received and not yet sent to the host
// (one Data buffer) when the unit goes away: the host cannot count them.
constexpr size_t kGatherSlack = 1024;

// Sanitized hosts are several times slower: lines run an eighth as fast there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned kSanitizedPaceDivisor = 8;
#else
constexpr unsigned kSanitizedPaceDivisor = 1;
#endif

inline hdwsim::Emulator::Options SimOptions(unsigned paceFactor)
{
    hdwsim::Emulator::Options o;
    o.Pty = false;
    o.Udp = true;
    o.UartPaceFactor = std::max(1u, paceFactor / kSanitizedPaceDivisor);
    return o;
}

inline CKVX_HdwUartPort::CParameters Line(uint32_t baudRate)
{
    CKVX_HdwUartPort::CParameters p;
    p.BaudRate = baudRate;
    return p;
}

class SorrelRig : public halden_test::UnitRig {
public:
    struct Uart {
        CKVX_HdwPort* Port = nullptr;
        CKVX_HdwKvxSorrelByteInBufferService* In = nullptr;
        CKVX_HdwKvxSorrelByteOutBufferService* Out = nullptr;
        std::vector<uint8_t> Got;
    };

    explicit SorrelRig(unsigned paceFactor = 1) : UnitRig(halden_test::UnitNamed("sorrel"), SimOptions(paceFactor)) {}
    ~SorrelRig()
    {
        for (unsigned i = 0; i < Manager.GetPortCount(HDW_PORT_UART); ++i)
            if (CKVX_HdwPort* p = Manager.GetPort(HDW_PORT_UART, i))
                p->Close();
    }
    CKVX_HdwKvxSorrelDevice& Sorrel() { return static_cast<CKVX_HdwKvxSorrelDevice&>(*Device); }

    void Enable(unsigned num)
    {
        Uart& u = Uarts[num];
        u.Port = Manager.GetPort(HDW_PORT_UART, num);
        ASSERT_NE(u.Port, nullptr);
        CKVX_HdwByteInBufferService::CParameters in;
        in.BufferSize = kInBufferBytes;
        CKVX_HdwService* s = nullptr;
        ASSERT_EQ(u.Port->EnableService(HDW_SERVICE_BYTE_IN_BUFFER, &s, &in), 0u);
        u.In = dynamic_cast<CKVX_HdwKvxSorrelByteInBufferService*>(s);
        ASSERT_EQ(u.Port->EnableService(HDW_SERVICE_BYTE_OUT_BUFFER, &s, nullptr), 0u);
        u.Out = dynamic_cast<CKVX_HdwKvxSorrelByteOutBufferService*>(s);
        ASSERT_TRUE(u.In && u.Out);
    }

    unsigned Open(unsigned num, CKVX_HdwUartPort::CParameters line) { return Uarts[num].Port->Open(&line); }

    // Starts and opens the wired UARTs 0 and 1 with their services.
    void StartPair(uint32_t rate)
    {
        ASSERT_NO_FATAL_FAILURE(Start());
        for (unsigned n : {0, 1}) {
            ASSERT_NO_FATAL_FAILURE(Enable(n));
            ASSERT_EQ(Open(n, Line(rate)), 0u) << "UART " << n;
        }
    }

    void Drain(unsigned num)
    {
        Uart& u = Uarts[num];
        uint8_t buf[65536];
        unsigned got = 0;
        while (u.In->Read(buf, sizeof buf, got) == 0 && got)
            u.Got.insert(u.Got.end(), buf, buf + got);
    }

    bool ReadUntil(const std::vector<unsigned>& nums, size_t bytes, unsigned timeoutMs)
    {
        return WaitUntil(
            [&] {
                bool all = true;
                for (unsigned n : nums) {
                    Drain(n);
                    all = all && Uarts[n].Got.size() >= bytes;
                }
                return all;
            },
            timeoutMs);
    }

    Uart Uarts[6];
};

} // namespace sorrel_test

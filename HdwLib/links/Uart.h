#pragma once
// A serial port opened by name: a PC COM port or the virtual port of a
// USB-UART bridge ("COM5" on Windows; "/dev/ttyUSB0", "/dev/pts/7" on Linux).
// It configures the line from a CKVX_HdwUartPort::CParameters record, reads
// what is already queued without waiting, writes with a time-out and offers
// queue counts and purges. No framing, no thread, no lock: one reader thread
// and one writer thread may use it at the same time, anything more is
// serialised by the owner.
//
// Result codes: 0 success, 13 a status or read call failed, 14 the port could
// not be opened or configured, 19 the port is not open, 23 a write did not
// complete in time (the output queue is purged before 23 is returned).
//
// Behaviour kept on both systems:
// - Open on an open object is not guarded: it opens again and overwrites the
//   handle. Close on a closed object returns 0. The destructor does not close
//   the port; owners call Close.
// - Copies share the open port (handle and events are copied as they stand).
// - Read returns at once with what is queued (bytesRead 0 when nothing is).
// - Write: a write that the system refuses outright (not a time-out) answers
//   0; a dead link is noticed by missing answers, not by the write result.
//   The time-out is measured from the first wait; with timeoutMs 0 a write
//   that cannot complete at once times out.
//
// Linux (termios):
// - Open uses O_NOCTTY|O_NONBLOCK and takes the line exclusively (TIOCEXCL);
//   a second Open of the same device by another CUart therefore fails with 14.
// - Baud rates without a Bxxx constant (6,000,000 and 8,000,000 bit/s ...)
//   are set as arbitrary rates (termios2). A rate the driver does not keep is
//   a failed configuration round (14).
// - Parity mark and space use CMSPAR. Each configuration round is read back;
//   a driver that drops a setting (a pseudo-terminal clears PARENB) fails the
//   round with 14. One and a half stop bits do not exist on Linux and are set
//   as two.
// - Write waits on the descriptor with poll() up to timeoutMs instead of
//   spinning, and purges the output queue (tcflush) on a time-out; a line
//   that fails or hangs up during that wait ends it at once with 23.
// - WriteSome is one write on the non-blocking descriptor; a line that has
//   hung up or failed answers 13.
// - Read with nothing queued answers 13 when the line has hung up (the other
//   side of a pseudo-terminal closed, a bridge unplugged), 0 otherwise.
// - SetParity refused by the driver closes the port and, unlike Windows,
//   clears the handle: a stale descriptor number could name another file.
// - A pseudo-terminal moves written bytes to its other side at once: it has
//   no output queue to count or purge, and it cannot hold parity or fewer
//   than eight data bits (14).
// - Win32-only quirks without a Linux counterpart: the event objects and the
//   overlapped records (there are none, so the "handle kept after a failed
//   event creation" path cannot happen), the comm mask, ClearCommError's
//   latched line errors, and EscapeCommFunction(CLRDTR) on Close (the kernel
//   drops DTR itself when the last descriptor closes with HUPCL set).
// - The queue sizes are accepted and kept but the kernel sizes its own queues.

#include <HdwLib/bus/HdwUartPort.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/framework/HdwObject.h>

#include <cstdint>

class HDWLIB_EXPORT CUart : public CKVX_HdwObject {
public:
    static constexpr uint32_t DefaultQueueSize = 4096;

    CUart();
    CUart(const CUart& other);
    CUart(CUart&& other) noexcept;
    CUart& operator=(const CUart& other);
    CUart& operator=(CUart&& other) noexcept;
    // Does not close the port.
    ~CUart() override;

    // Virtual operations, in interface order.
    virtual unsigned Open(const CKVX_String& name, CKVX_HdwUartPort::CParameters* params);
    virtual unsigned Close();

    unsigned Read(unsigned char* buffer, unsigned int maxBytes, unsigned int& bytesRead);
    unsigned Write(unsigned char* buffer, unsigned int count, unsigned int timeoutMs);
    // Writes what the line takes at once, never waiting for room: `written`
    // says how many (0 when the line is full). Non-zero when the line failed.
    unsigned WriteSome(const unsigned char* buffer, unsigned int count, unsigned int& written);
    unsigned SetParity(unsigned char parity);
    unsigned GetReadBufferBytes(unsigned int& count);
    unsigned GetBytesToBeWritten(unsigned int& count);
    unsigned ResetReadBuffer();
    unsigned ResetWriteBuffer();

    bool IsOpen() const { return m_Handle != 0; }
    // The configuration last given to Open (parity updated by SetParity).
    const CKVX_HdwUartPort::CParameters& GetParameters() const { return m_Parameters; }
    // Driver queue sizes used by the next Open (Windows SetupComm).
    void SetQueueSizes(uint32_t inputSize, uint32_t outputSize);
    uint32_t GetInputQueueSize() const { return m_InputQueueSize; }
    uint32_t GetOutputQueueSize() const { return m_OutputQueueSize; }

private:
    void CopyFrom(const CUart& other);

    // Opaque system handle: a Windows HANDLE or a Linux file descriptor
    // (never 0 while open). 0 means not open.
    intptr_t m_Handle = 0;
    // Windows only: the overlapped records of writes and reads, and their events.
    alignas(8) unsigned char m_WriteOverlapped[32] = {};
    alignas(8) unsigned char m_ReadOverlapped[32] = {};
    void* m_WriteEvent = nullptr;
    void* m_ReadEvent = nullptr;
    uint32_t m_InputQueueSize = DefaultQueueSize;
    uint32_t m_OutputQueueSize = DefaultQueueSize;
    CKVX_HdwUartPort::CParameters m_Parameters;
};

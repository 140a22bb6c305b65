// CUart on Windows: a communications device opened for overlapped I/O,
// configured in separate read-modify-write rounds of its control block.
#include <HdwLib/links/Uart.h>

#include <cstring>
#include <windows.h>

static_assert(sizeof(OVERLAPPED) <= 32, "the overlapped records must fit their storage");

namespace {

constexpr DWORD kCommMask = EV_RXCHAR | EV_ERR; // 0x81

HANDLE H(intptr_t handle)
{
    return reinterpret_cast<HANDLE>(handle);
}

OVERLAPPED* Ov(unsigned char* storage)
{
    return reinterpret_cast<OVERLAPPED*>(storage);
}

template <typename Change>
bool DcbRound(HANDLE port, Change change)
{
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof(DCB); // 28
    if (!GetCommState(port, &dcb))
        return false;
    change(dcb);
    return SetCommState(port, &dcb) != 0;
}

} // namespace

unsigned CUart::Open(const CKVX_String& name, CKVX_HdwUartPort::CParameters* params)
{
    const CKVX_String path = CKVX_String("\\\\.\\") + name;
    HANDLE port = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
        FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr);
    if (port == INVALID_HANDLE_VALUE) {
        m_Handle = 0;
        return HDW_ERR_LINK;
    }
    m_Handle = reinterpret_cast<intptr_t>(port);
    if (params)
        m_Parameters = *params;

    OVERLAPPED* rd = Ov(m_ReadOverlapped);
    OVERLAPPED* wr = Ov(m_WriteOverlapped);
    std::memset(rd, 0, sizeof(OVERLAPPED));
    std::memset(wr, 0, sizeof(OVERLAPPED));
    // On the two event failures the handle member keeps its closed value:
    // later operations see the port as open. Kept as it is.
    m_ReadEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!m_ReadEvent) {
        CloseHandle(port);
        return HDW_ERR_LINK;
    }
    rd->hEvent = m_ReadEvent;
    m_WriteEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (!m_WriteEvent) {
        CloseHandle(m_ReadEvent);
        CloseHandle(port);
        return HDW_ERR_LINK;
    }
    wr->hEvent = m_WriteEvent;

    auto fail = [this, port]() {
        CloseHandle(m_ReadEvent);
        CloseHandle(m_WriteEvent);
        CloseHandle(port);
        m_Handle = 0;
        return HDW_ERR_LINK;
    };

    SetCommMask(port, kCommMask);

    const CKVX_HdwUartPort::CParameters& p = m_Parameters;
    const uint8_t flow = p.FlowControl;
    if (!DcbRound(port, [](DCB& d) { d.fAbortOnError = 0; }) ||
        !DcbRound(port, [&p](DCB& d) { d.BaudRate = p.BaudRate; }) ||
        !DcbRound(port,
            [&p](DCB& d) {
                d.Parity = p.Parity;
                d.fParity = p.Parity != 0 ? 1 : 0;
            }) ||
        !DcbRound(port, [&p](DCB& d) { d.StopBits = p.StopBits; }) ||
        !DcbRound(port, [&p](DCB& d) { d.ByteSize = p.DataBits; }) ||
        !DcbRound(port,
            [flow](DCB& d) {
                if (flow == 0) {
                    d.fOutxDsrFlow = 0;
                    d.fDtrControl = DTR_CONTROL_DISABLE;
                    d.fOutxCtsFlow = 0;
                    d.fRtsControl = RTS_CONTROL_ENABLE;
                    d.fOutX = 0;
                    d.fInX = 0;
                    return;
                }
                const bool dtrDsr = (flow & CKVX_HdwUartPort::CParameters::FlowDtrDsr) != 0;
                const bool rtsCts = (flow & CKVX_HdwUartPort::CParameters::FlowRtsCts) != 0;
                const bool xonXoff = (flow & CKVX_HdwUartPort::CParameters::FlowXonXoff) != 0;
                d.fOutxDsrFlow = dtrDsr ? 1 : 0;
                d.fDtrControl = dtrDsr ? DTR_CONTROL_HANDSHAKE : DTR_CONTROL_ENABLE;
                d.fOutxCtsFlow = rtsCts ? 1 : 0;
                d.fRtsControl = rtsCts ? RTS_CONTROL_HANDSHAKE : RTS_CONTROL_ENABLE;
                d.fOutX = xonXoff ? 1 : 0;
                d.fInX = d.fOutX;
                d.XonChar = 0x11;
                d.XoffChar = 0x13;
                d.XonLim = 100;
                d.XoffLim = 100;
            }) ||
        !DcbRound(port, [](DCB& d) { d.fBinary = 1; }))
        return fail();

    COMMTIMEOUTS timeouts;
    timeouts.ReadIntervalTimeout = 0;
    timeouts.ReadTotalTimeoutMultiplier = 0;
    timeouts.ReadTotalTimeoutConstant = 0;
    timeouts.WriteTotalTimeoutMultiplier = 1;
    timeouts.WriteTotalTimeoutConstant = 100;
    if (!SetCommTimeouts(port, &timeouts))
        return fail();
    if (!SetupComm(port, m_InputQueueSize, m_OutputQueueSize))
        return fail();
    if (!PurgeComm(port, PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR))
        return fail();
    ResetReadBuffer();
    DWORD errors = 0;
    ClearCommError(port, &errors, nullptr);
    return 0;
}

unsigned CUart::Close()
{
    if (!IsOpen())
        return 0;
    HANDLE port = H(m_Handle);
    SetCommMask(port, 0);
    PurgeComm(port, PURGE_RXABORT | PURGE_RXCLEAR);
    EscapeCommFunction(port, CLRDTR);
    CloseHandle(port);
    m_Handle = 0;
    // The two events stay allocated until a later Open replaces them.
    return 0;
}

unsigned CUart::Read(unsigned char* buffer, unsigned int maxBytes, unsigned int& bytesRead)
{
    bytesRead = 0;
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    HANDLE port = H(m_Handle);
    DWORD errors = 0;
    if (!ClearCommError(port, &errors, nullptr))
        return HDW_ERR_SYSTEM_CALL;
    unsigned queued = 0;
    GetReadBufferBytes(queued);
    const DWORD n = queued < maxBytes ? queued : maxBytes;
    DWORD got = 0;
    OVERLAPPED* ov = Ov(m_ReadOverlapped);
    if (ReadFile(port, buffer, n, &got, ov)) {
        bytesRead = got;
        return 0;
    }
    if (GetLastError() != ERROR_IO_PENDING)
        return HDW_ERR_SYSTEM_CALL;
    // Only queued bytes are asked for, so a pending read completes at once;
    // some drivers (wine's) still report it as pending. Its count is taken
    // from the overlapped record, otherwise the bytes it moved would be lost,
    // and a read that is somehow not done yet is finished before the
    // caller's buffer is given back.
    if (!GetOverlappedResult(port, ov, &got, FALSE)) {
        if (GetLastError() != ERROR_IO_INCOMPLETE || !GetOverlappedResult(port, ov, &got, TRUE))
            got = 0;
    }
    bytesRead = got;
    return 0;
}

unsigned CUart::Write(unsigned char* buffer, unsigned int count, unsigned int timeoutMs)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    HANDLE port = H(m_Handle);
    OVERLAPPED* ov = Ov(m_WriteOverlapped);
    DWORD written = 0;
    if (WriteFile(port, buffer, count, &written, ov))
        return written == count ? 0u : unsigned(HDW_ERR_WRITE_TIMEOUT);
    if (GetLastError() != ERROR_IO_PENDING)
        return 0; // kept: a dead link is noticed by missing answers

    // A busy poll on purpose: the write is watched without sleeping.
    const DWORD t0 = GetTickCount();
    bool inTime = true;
    while (!GetOverlappedResult(port, ov, &written, FALSE)) {
        if (!inTime)
            break;
        const DWORD now = GetTickCount();
        if (static_cast<int32_t>(now - t0) >= static_cast<int32_t>(timeoutMs))
            inTime = false;
    }
    if (written == count && inTime)
        return 0;
    ResetWriteBuffer();
    // PURGE_TXABORT ends the pending write on Windows; where a driver leaves
    // it running (wine), it is cancelled here, so that nothing of the rest
    // goes out later and the caller's buffer is no longer used on return.
    if (!HasOverlappedIoCompleted(ov)) {
        CancelIo(port);
        GetOverlappedResult(port, ov, &written, TRUE);
    }
    return HDW_ERR_WRITE_TIMEOUT;
}

unsigned CUart::WriteSome(const unsigned char* buffer, unsigned int count, unsigned int& written)
{
    written = 0;
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    if (count == 0 || !buffer)
        return 0;
    // The driver counts its output queue: what fits in the queue size set at
    // Open is taken without a wait.
    unsigned queued = 0;
    GetBytesToBeWritten(queued);
    const unsigned room = m_OutputQueueSize > queued ? m_OutputQueueSize - queued : 0u;
    const unsigned n = count < room ? count : room;
    if (n == 0)
        return 0;
    const unsigned rc = Write(const_cast<unsigned char*>(buffer), n, m_Parameters.Timeout);
    if (rc == 0)
        written = n;
    return rc;
}

unsigned CUart::SetParity(unsigned char parity)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    HANDLE port = H(m_Handle);
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof(DCB);
    GetCommState(port, &dcb);
    dcb.Parity = parity;
    dcb.fParity = parity != 0 ? 1 : 0;
    if (SetCommState(port, &dcb)) {
        m_Parameters.Parity = parity;
        return 0;
    }
    // The handle member is not cleared here; kept as it is.
    CloseHandle(m_ReadEvent);
    CloseHandle(m_WriteEvent);
    CloseHandle(port);
    return HDW_ERR_LINK;
}

unsigned CUart::GetReadBufferBytes(unsigned int& count)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    DWORD errors = 0;
    COMSTAT stat;
    std::memset(&stat, 0, sizeof stat);
    if (!ClearCommError(H(m_Handle), &errors, &stat))
        return HDW_ERR_SYSTEM_CALL;
    count = stat.cbInQue;
    return 0;
}

unsigned CUart::GetBytesToBeWritten(unsigned int& count)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    DWORD errors = 0;
    COMSTAT stat;
    std::memset(&stat, 0, sizeof stat);
    ClearCommError(H(m_Handle), &errors, &stat);
    count = stat.cbOutQue;
    return 0;
}

unsigned CUart::ResetReadBuffer()
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    HANDLE port = H(m_Handle);
    SetCommMask(port, 0);
    PurgeComm(port, PURGE_RXCLEAR);
    PurgeComm(port, PURGE_RXABORT);
    PurgeComm(port, PURGE_RXCLEAR);
    SetCommMask(port, kCommMask);
    return 0;
}

unsigned CUart::ResetWriteBuffer()
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    HANDLE port = H(m_Handle);
    DWORD errors = 0;
    ClearCommError(port, &errors, nullptr);
    PurgeComm(port, PURGE_TXABORT | PURGE_TXCLEAR);
    ClearCommError(port, &errors, nullptr);
    return 0;
}

// CUart on Linux: termios on a non-blocking descriptor. The configuration is
// made in separate rounds like the Windows one, each read back so that a
// setting the driver does not keep fails the round (14).
#include <HdwLib/framework/internal/PlatformTimer.h>
#include <HdwLib/links/Uart.h>
#include <HdwLib/links/internal/UartBaudRate.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr unsigned char kXon = 0x11;
constexpr unsigned char kXoff = 0x13;

int Fd(intptr_t handle)
{
    return static_cast<int>(handle);
}

// One read-modify-write round; false when the driver refuses or does not keep
// what `check` looks at.
template <typename Change, typename Check>
bool ConfigRound(int fd, Change change, Check check)
{
    termios tio{};
    if (tcgetattr(fd, &tio) != 0)
        return false;
    change(tio);
    if (tcsetattr(fd, TCSANOW, &tio) != 0)
        return false;
    termios back{};
    if (tcgetattr(fd, &back) != 0)
        return false;
    return check(back);
}

// Parity bits for a parity code; false for a code that does not exist.
bool ParityBits(unsigned char parity, tcflag_t& bits)
{
    switch (parity) {
    case CKVX_HdwUartPort::CParameters::ParityNone: bits = 0; return true;
    case CKVX_HdwUartPort::CParameters::ParityOdd: bits = PARENB | PARODD; return true;
    case CKVX_HdwUartPort::CParameters::ParityEven: bits = PARENB; return true;
    case CKVX_HdwUartPort::CParameters::ParityMark: bits = PARENB | PARODD | CMSPAR; return true;
    case CKVX_HdwUartPort::CParameters::ParitySpace: bits = PARENB | CMSPAR; return true;
    default: return false;
    }
}

constexpr tcflag_t kParityMask = PARENB | PARODD | CMSPAR;

bool SetParityRound(int fd, unsigned char parity)
{
    tcflag_t bits = 0;
    if (!ParityBits(parity, bits))
        return false;
    return ConfigRound(
        fd,
        [bits](termios& t) {
            t.c_cflag = (t.c_cflag & ~kParityMask) | bits;
            // Check received parity only when the line carries it.
            if (bits)
                t.c_iflag |= INPCK;
            else
                t.c_iflag &= ~INPCK;
        },
        [bits](const termios& t) { return (t.c_cflag & kParityMask) == bits; });
}

bool CharSizeBits(unsigned char dataBits, tcflag_t& bits)
{
    switch (dataBits) {
    case 5: bits = CS5; return true;
    case 6: bits = CS6; return true;
    case 7: bits = CS7; return true;
    case 8: bits = CS8; return true;
    default: return false;
    }
}

// DTR and RTS levels; best effort, since pseudo-terminals have no modem lines.
void SetModemLine(int fd, int line, bool on)
{
    ioctl(fd, on ? TIOCMBIS : TIOCMBIC, &line);
}

bool Configure(int fd, const CKVX_HdwUartPort::CParameters& p)
{
    // Raw, binary line that does not stop on errors: no echo, no line
    // editing, no character translation, no signals, receiver on, modem
    // status ignored for opening. Reads never wait (the descriptor is
    // non-blocking); VMIN 1 makes an empty line answer EAGAIN, so that a read
    // of 0 bytes means a hang-up and an empty tick costs one read call.
    if (!ConfigRound(
            fd,
            [](termios& t) {
                t.c_iflag &= ~(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IXANY);
                t.c_oflag &= ~OPOST;
                t.c_lflag &= ~(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
                t.c_cflag |= CREAD | CLOCAL;
                t.c_cc[VMIN] = 1;
                t.c_cc[VTIME] = 0;
            },
            [](const termios& t) { return (t.c_lflag & ICANON) == 0 && (t.c_oflag & OPOST) == 0; }))
        return false;

    // Speed, with termios2 so that any rate can be asked for.
    unsigned rate = 0;
    if (!hdw::platform::SetUartBaudRate(fd, p.BaudRate) || !hdw::platform::GetUartBaudRate(fd, rate) ||
        rate != p.BaudRate)
        return false;

    if (!SetParityRound(fd, p.Parity))
        return false;

    // One and a half stop bits do not exist here; they are set as two.
    if (p.StopBits > CKVX_HdwUartPort::CParameters::StopBitsTwo)
        return false;
    const bool twoStop = p.StopBits != CKVX_HdwUartPort::CParameters::StopBitsOne;
    if (!ConfigRound(
            fd, [twoStop](termios& t) { t.c_cflag = twoStop ? (t.c_cflag | CSTOPB) : (t.c_cflag & ~CSTOPB); },
            [twoStop](const termios& t) { return ((t.c_cflag & CSTOPB) != 0) == twoStop; }))
        return false;

    tcflag_t size = 0;
    if (!CharSizeBits(p.DataBits, size))
        return false;
    if (!ConfigRound(
            fd, [size](termios& t) { t.c_cflag = (t.c_cflag & ~CSIZE) | size; },
            [size](const termios& t) { return (t.c_cflag & CSIZE) == size; }))
        return false;

    // Flow control. DTR/DSR handshake has no termios counterpart: DTR is
    // raised and DSR is not watched. RTS/CTS is CRTSCTS; XON/XOFF is IXON and
    // IXOFF with 0x11/0x13 (set whenever any flow bit is set).
    const uint8_t flow = p.FlowControl;
    const bool rtsCts = (flow & CKVX_HdwUartPort::CParameters::FlowRtsCts) != 0;
    const bool xonXoff = (flow & CKVX_HdwUartPort::CParameters::FlowXonXoff) != 0;
    if (!ConfigRound(
            fd,
            [flow, rtsCts, xonXoff](termios& t) {
                t.c_cflag = rtsCts ? (t.c_cflag | CRTSCTS) : (t.c_cflag & ~CRTSCTS);
                t.c_iflag = xonXoff ? (t.c_iflag | IXON | IXOFF) : (t.c_iflag & ~(IXON | IXOFF));
                if (flow) {
                    t.c_cc[VSTART] = kXon;
                    t.c_cc[VSTOP] = kXoff;
                }
            },
            [rtsCts, xonXoff](const termios& t) {
                return ((t.c_cflag & CRTSCTS) != 0) == rtsCts && ((t.c_iflag & IXON) != 0) == xonXoff;
            }))
        return false;
    // Without flow control DTR is dropped and RTS raised; with it both are raised.
    SetModemLine(fd, TIOCM_DTR, flow != 0);
    SetModemLine(fd, TIOCM_RTS, true);
    return true;
}

} // namespace

unsigned CUart::Open(const CKVX_String& name, CKVX_HdwUartPort::CParameters* params)
{
    // A bare name ("ttyUSB0") is looked up under /dev.
    CKVX_String path = name;
    if (name.FindFromBegin('/') < 0)
        path = CKVX_String("/dev/") + name;

    int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 || !params) {
        if (fd >= 0)
            ::close(fd);
        m_Handle = 0;
        return HDW_ERR_LINK;
    }
    // 0 means "not open", so the descriptor must not be 0 (nor stdout/stderr).
    if (fd < 3) {
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
        ::close(fd);
        if (moved < 0) {
            m_Handle = 0;
            return HDW_ERR_LINK;
        }
        fd = moved;
    }
    m_Handle = fd;
    m_Parameters = *params;

    auto fail = [this, fd]() {
        ioctl(fd, TIOCNXCL);
        ::close(fd);
        m_Handle = 0;
        return HDW_ERR_LINK;
    };
    if (!isatty(fd) || ioctl(fd, TIOCEXCL) != 0)
        return fail();
    if (!Configure(fd, m_Parameters))
        return fail();
    if (tcflush(fd, TCIOFLUSH) != 0)
        return fail();
    ResetReadBuffer();
    return 0;
}

unsigned CUart::Close()
{
    if (!IsOpen())
        return 0;
    const int fd = Fd(m_Handle);
    tcflush(fd, TCIFLUSH);
    // Release the exclusive claim: it outlives the descriptor on a
    // pseudo-terminal whose other side stays open.
    ioctl(fd, TIOCNXCL);
    ::close(fd);
    m_Handle = 0;
    return 0;
}

unsigned CUart::Read(unsigned char* buffer, unsigned int maxBytes, unsigned int& bytesRead)
{
    bytesRead = 0;
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    const int fd = Fd(m_Handle);
    if (buffer && maxBytes > 0) {
        // The descriptor is non-blocking: one call takes what is queued.
        const ssize_t got = ::read(fd, buffer, maxBytes);
        if (got > 0) {
            bytesRead = static_cast<unsigned>(got);
            return 0;
        }
        if (got < 0 && errno != EAGAIN && errno != EINTR)
            return HDW_ERR_SYSTEM_CALL; // EIO: the other side of a pseudo-terminal closed
        // Empty but alive: a hung-up line reads as end of file, not EAGAIN.
        if (got < 0 && errno == EAGAIN)
            return 0;
    }
    // Nothing queued: report a line that has gone away (a bridge unplugged, a
    // modem hang-up) instead of "empty".
    pollfd pfd{fd, 0, 0};
    if (poll(&pfd, 1, 0) == 1 && (pfd.revents & (POLLHUP | POLLERR | POLLNVAL)))
        return HDW_ERR_SYSTEM_CALL;
    return 0;
}

unsigned CUart::Write(unsigned char* buffer, unsigned int count, unsigned int timeoutMs)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    if (count == 0 || !buffer)
        return 0;
    const int fd = Fd(m_Handle);
    unsigned done = 0;
    ssize_t n = ::write(fd, buffer, count);
    if (n < 0 && errno != EAGAIN && errno != EINTR)
        return 0; // refused outright: kept as success, see the header
    if (n > 0)
        done = static_cast<unsigned>(n);
    if (done == count)
        return 0;

    // Pending: wait for room on the descriptor until the time-out.
    const uint64_t t0 = hdw::platform::MonotonicMs();
    for (;;) {
        const uint64_t elapsed = hdw::platform::MonotonicMs() - t0;
        if (elapsed >= timeoutMs)
            break;
        pollfd pfd{fd, POLLOUT, 0};
        const int rc = poll(&pfd, 1, static_cast<int>(timeoutMs - elapsed));
        if (rc < 0 && errno == EINTR)
            continue;
        if (rc <= 0 || (pfd.revents & (POLLERR | POLLHUP | POLLNVAL)))
            break;
        n = ::write(fd, buffer + done, count - done);
        if (n < 0 && errno != EAGAIN && errno != EINTR)
            break;
        if (n > 0)
            done += static_cast<unsigned>(n);
        if (done == count)
            return 0;
    }
    ResetWriteBuffer();
    return HDW_ERR_WRITE_TIMEOUT;
}

unsigned CUart::WriteSome(const unsigned char* buffer, unsigned int count, unsigned int& written)
{
    written = 0;
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    if (count == 0 || !buffer)
        return 0;
    ssize_t n;
    do
        n = ::write(Fd(m_Handle), buffer, count);
    while (n < 0 && errno == EINTR);
    if (n < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK ? 0u : unsigned(HDW_ERR_SYSTEM_CALL);
    written = static_cast<unsigned>(n);
    return 0;
}

unsigned CUart::SetParity(unsigned char parity)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    const int fd = Fd(m_Handle);
    if (!SetParityRound(fd, parity)) {
        // The port is closed as on Windows, but here the handle is cleared
        // too: a stale descriptor number could be reused by another file.
        ioctl(fd, TIOCNXCL);
        ::close(fd);
        m_Handle = 0;
        return HDW_ERR_LINK;
    }
    m_Parameters.Parity = parity;
    return 0;
}

unsigned CUart::GetReadBufferBytes(unsigned int& count)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    int queued = 0;
    if (ioctl(Fd(m_Handle), FIONREAD, &queued) != 0)
        return HDW_ERR_SYSTEM_CALL;
    count = queued > 0 ? unsigned(queued) : 0;
    return 0;
}

unsigned CUart::GetBytesToBeWritten(unsigned int& count)
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    int queued = 0;
    // Not checked, as on Windows: a driver without an output count reports 0.
    if (ioctl(Fd(m_Handle), TIOCOUTQ, &queued) != 0)
        queued = 0;
    count = queued > 0 ? unsigned(queued) : 0;
    return 0;
}

unsigned CUart::ResetReadBuffer()
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    tcflush(Fd(m_Handle), TCIFLUSH);
    return 0;
}

unsigned CUart::ResetWriteBuffer()
{
    if (!IsOpen())
        return HDW_ERR_PORT_NOT_OPEN;
    tcflush(Fd(m_Handle), TCOFLUSH);
    return 0;
}

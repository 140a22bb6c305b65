#include "PtyEndpoint.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

namespace hdwsim {

namespace {
// Bytes held for a host that does not read; beyond this the unit's output is lost.
constexpr size_t MaxPending = 16u << 20;
} // namespace

PtyEndpoint::~PtyEndpoint()
{
    Close();
}

bool PtyEndpoint::Open(std::string& error)
{
    Close();
    int master = -1;
    int slave = -1;
    char name[128] = {};
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0) {
        error = std::string("openpty: ") + std::strerror(errno);
        return false;
    }
    // Raw on the slave side, so that a host that does not configure the line
    // still sees the bytes unchanged; the settings stay while the master is open.
    termios tio{};
    if (tcgetattr(slave, &tio) == 0) {
        cfmakeraw(&tio);
        tcsetattr(slave, TCSANOW, &tio);
    }
    close(slave);
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
    fcntl(master, F_SETFD, FD_CLOEXEC);
    m_Master = master;
    m_Path = name;
    m_PeerPresent = false;
    m_Pending.clear();
    return true;
}

void PtyEndpoint::Close()
{
    if (m_Master >= 0)
        close(m_Master);
    m_Master = -1;
    m_PeerPresent = false;
    m_Pending.clear();
}

bool PtyEndpoint::RefreshPeer()
{
    if (m_Master < 0)
        return false;
    pollfd p{m_Master, 0, 0};
    const bool present = poll(&p, 1, 0) >= 0 && !(p.revents & (POLLHUP | POLLERR));
    if (present == m_PeerPresent)
        return false;
    m_PeerPresent = present;
    if (!present)
        m_Pending.clear();
    return true;
}

bool PtyEndpoint::Read(std::vector<uint8_t>& out)
{
    uint8_t buf[65536];
    for (;;) {
        const ssize_t n = read(m_Master, buf, sizeof buf);
        if (n > 0) {
            out.insert(out.end(), buf, buf + n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return true;
        SetPeerGone(); // EIO: the last holder of the slave closed it
        return false;
    }
}

void PtyEndpoint::Write(const uint8_t* data, size_t size)
{
    if (m_Master < 0 || !m_PeerPresent)
        return;
    if (m_Pending.size() + size > MaxPending)
        return;
    m_Pending.insert(m_Pending.end(), data, data + size);
    Flush();
}

void PtyEndpoint::Flush()
{
    size_t done = 0;
    while (done < m_Pending.size()) {
        const ssize_t n = write(m_Master, m_Pending.data() + done, m_Pending.size() - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        SetPeerGone();
        return;
    }
    m_Pending.erase(m_Pending.begin(), m_Pending.begin() + static_cast<std::ptrdiff_t>(done));
}

} // namespace hdwsim

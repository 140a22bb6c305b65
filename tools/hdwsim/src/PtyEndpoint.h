#pragma once
// The serial side of the emulated unit: the master of a pseudo-terminal whose
// slave path is the device name the host opens. The host may close the slave
// and open it again at any time (a probe, then the real use); while no one
// holds the slave, the master reports a hang-up and is not polled for input.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hdwsim {

class PtyEndpoint {
public:
    PtyEndpoint() = default;
    ~PtyEndpoint();
    PtyEndpoint(const PtyEndpoint&) = delete;
    PtyEndpoint& operator=(const PtyEndpoint&) = delete;

    // Creates the pseudo-terminal (raw mode). False with `error` set on failure.
    bool Open(std::string& error);
    void Close();

    bool IsOpen() const { return m_Master >= 0; }
    int Fd() const { return m_Master; }
    const std::string& Path() const { return m_Path; }

    // True while a host holds the slave open. Updates the state from the
    // master's poll flags; returns true when it changed.
    bool RefreshPeer();
    bool PeerPresent() const { return m_PeerPresent; }
    void SetPeerGone()
    {
        m_PeerPresent = false;
        m_Pending.clear();
    }

    // Reads what is waiting into `out` (appending). False when the peer is gone.
    bool Read(std::vector<uint8_t>& out);
    // Queues bytes and writes as much as the terminal takes now.
    void Write(const uint8_t* data, size_t size);
    // Writes queued bytes; call when the master is writable.
    void Flush();
    bool HasPending() const { return !m_Pending.empty(); }

private:
    int m_Master = -1;
    std::string m_Path;
    bool m_PeerPresent = false;
    std::vector<uint8_t> m_Pending;
};

} // namespace hdwsim

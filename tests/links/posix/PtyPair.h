#pragma once
// A pseudo-terminal pair: the library opens the slave, the test plays the master.

#include <chrono>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include "support/Wait.h"

class PtyPair {
public:
    PtyPair()
    {
        char name[256] = {};
        if (openpty(&m_Master, &m_Slave, name, nullptr, nullptr) == 0) {
            m_Name = name;
            termios t{};
            tcgetattr(m_Slave, &t);
            cfmakeraw(&t);
            tcsetattr(m_Slave, TCSANOW, &t);
            fcntl(m_Master, F_SETFL, fcntl(m_Master, F_GETFL) | O_NONBLOCK);
        }
    }
    ~PtyPair()
    {
        CloseMaster();
        if (m_Slave >= 0)
            close(m_Slave);
    }
    PtyPair(const PtyPair&) = delete;
    PtyPair& operator=(const PtyPair&) = delete;

    bool Ok() const { return m_Master >= 0 && m_Slave >= 0; }
    const std::string& SlaveName() const { return m_Name; }
    // The test's own descriptor of the slave, to look at its line settings.
    int Slave() const { return m_Slave; }
    void CloseMaster()
    {
        if (m_Master >= 0)
            close(m_Master);
        m_Master = -1;
    }

    bool WriteMaster(const std::vector<uint8_t>& bytes)
    {
        size_t done = 0;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (done < bytes.size() && std::chrono::steady_clock::now() < deadline) {
            const ssize_t n = write(m_Master, bytes.data() + done, bytes.size() - done);
            if (n > 0)
                done += size_t(n);
            else {
                pollfd p{m_Master, POLLOUT, 0};
                poll(&p, 1, 100);
            }
        }
        return done == bytes.size();
    }

    // Reads from the master until `count` bytes came or nothing came for 10 s.
    std::vector<uint8_t> ReadMaster(size_t count)
    {
        std::vector<uint8_t> out;
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (out.size() < count && std::chrono::steady_clock::now() < deadline) {
            uint8_t buf[4096];
            const ssize_t n = read(m_Master, buf, std::min(sizeof buf, count - out.size()));
            if (n > 0) {
                out.insert(out.end(), buf, buf + n);
                deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            } else {
                pollfd p{m_Master, POLLIN, 0};
                poll(&p, 1, 100);
            }
        }
        return out;
    }

    // Whatever the master has now, after waiting up to 100 ms for something.
    std::vector<uint8_t> ReadSome()
    {
        pollfd p{m_Master, POLLIN, 0};
        poll(&p, 1, 100);
        std::vector<uint8_t> out(65536);
        const ssize_t n = read(m_Master, out.data(), out.size());
        out.resize(n > 0 ? size_t(n) : 0);
        return out;
    }

    int MasterQueued() const
    {
        int n = -1;
        ioctl(m_Master, FIONREAD, &n);
        return n;
    }

private:
    int m_Master = -1;
    int m_Slave = -1;
    std::string m_Name;
};

using testsupport::WaitUntil;

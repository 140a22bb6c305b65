#pragma once
// The far end of the Windows serial tests. Under wine the test program cannot
// make pseudo-terminals itself: tests/support/wine_serial_peer does, maps
// each slave to a COM port of the wine prefix and plays the master side on
// request over a loopback TCP connection (HDWLIB_SERIAL_PEER). Without that
// runner the serial tests skip.

#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <vector>

class SerialPeer {
public:
    SerialPeer()
    {
        const char* peer = std::getenv("HDWLIB_SERIAL_PEER");
        const char* ports = std::getenv("HDWLIB_SERIAL_PORTS");
        WSADATA wsa;
        if (!peer || !ports || WSAStartup(MAKEWORD(2, 2), &wsa) != 0)
            return;
        m_WsaStarted = true;
        std::stringstream names(ports);
        for (std::string name; std::getline(names, name, ',');)
            m_Ports.push_back(name);
        const std::string address(peer);
        const size_t colon = address.rfind(':');
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<u_short>(std::atoi(address.c_str() + colon + 1)));
        inet_pton(AF_INET, address.substr(0, colon).c_str(), &addr.sin_addr);
        m_Socket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (m_Socket != INVALID_SOCKET && connect(m_Socket, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            closesocket(m_Socket);
            m_Socket = INVALID_SOCKET;
        }
    }
    ~SerialPeer()
    {
        if (m_Socket != INVALID_SOCKET)
            closesocket(m_Socket);
        if (m_WsaStarted)
            WSACleanup();
    }
    SerialPeer(const SerialPeer&) = delete;
    SerialPeer& operator=(const SerialPeer&) = delete;

    bool Ok() const { return m_Socket != INVALID_SOCKET && !m_Ports.empty(); }
    // The COM name of line i ("COM7").
    std::string PortName(size_t line) const { return line < m_Ports.size() ? m_Ports[line] : std::string(); }

    // A fresh pseudo-terminal behind the line's COM name.
    bool Renew(size_t line) { return Ask("RENEW", line) == "OK"; }
    bool HangUp(size_t line) { return Ask("HANGUP", line) == "OK"; }
    bool Send(size_t line, const std::vector<uint8_t>& bytes)
    {
        std::string hex;
        for (uint8_t b : bytes)
            hex += std::string{"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
        return Ask("SEND", line, hex) == "OK";
    }
    // Up to `count` bytes the program wrote, waiting up to `ms` for all of them.
    std::vector<uint8_t> Receive(size_t line, size_t count, unsigned ms = 10000)
    {
        const std::string reply = Ask("RECV", line, std::to_string(count) + " " + std::to_string(ms));
        std::vector<uint8_t> out;
        for (size_t i = 3; reply.rfind("OK", 0) == 0 && i + 1 < reply.size(); i += 2)
            out.push_back(static_cast<uint8_t>(std::strtoul(reply.substr(i, 2).c_str(), nullptr, 16)));
        return out;
    }
    // Bytes waiting for the program to read; -1 on failure.
    int InQueue(size_t line)
    {
        const std::string reply = Ask("INQUEUE", line);
        return reply.rfind("OK ", 0) == 0 ? std::atoi(reply.c_str() + 3) : -1;
    }
    // The line's settings as the far end sees them: "baud" -> "9600", "parity" -> "none", ...
    std::map<std::string, std::string> Settings(size_t line)
    {
        std::map<std::string, std::string> s;
        std::istringstream in(Ask("SETTINGS", line));
        for (std::string field; in >> field;)
            if (const size_t eq = field.find('='); eq != std::string::npos)
                s[field.substr(0, eq)] = field.substr(eq + 1);
        return s;
    }

private:
    // One request line, one reply line ("" when the peer is gone).
    std::string Ask(const char* verb, size_t line, const std::string& args = {})
    {
        const std::string request = std::string(verb) + " " + std::to_string(line) + " " + args + "\n";
        if (m_Socket == INVALID_SOCKET || send(m_Socket, request.data(), int(request.size()), 0) != int(request.size()))
            return {};
        for (size_t eol; (eol = m_Pending.find('\n')) == std::string::npos;) {
            char buf[65536];
            const int n = recv(m_Socket, buf, sizeof buf, 0);
            if (n <= 0)
                return {};
            m_Pending.append(buf, size_t(n));
        }
        const size_t eol = m_Pending.find('\n');
        const std::string reply = m_Pending.substr(0, eol);
        m_Pending.erase(0, eol + 1);
        return reply;
    }

    SOCKET m_Socket = INVALID_SOCKET;
    bool m_WsaStarted = false;
    std::vector<std::string> m_Ports;
    std::string m_Pending;
};

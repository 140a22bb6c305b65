#pragma once
// The far end of the Windows serial tests: tests/support/wine_serial_peer
// makes the pseudo-terminals behind the COM ports and plays their masters on
// request over loopback TCP (HDWLIB_SERIAL_PEER).

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
    // The slave's line settings as the far end sees them, by the peer's names
    // (baud, bits, parity, stop, crtscts, ixon, ixoff, xon, xoff, raw).
    using Settings = std::map<std::string, std::string>;

    SerialPeer()
    {
        const char* peer = std::getenv("HDWLIB_SERIAL_PEER");
        const char* ports = std::getenv("HDWLIB_SERIAL_PORTS");
        if (!peer || !ports)
            return;
        std::stringstream names(ports);
        for (std::string name; std::getline(names, name, ',');)
            m_Ports.push_back(name);
        const std::string address(peer);
        const size_t colon = address.rfind(':');
        WSADATA wsa;
        if (colon == std::string::npos || WSAStartup(MAKEWORD(2, 2), &wsa) != 0)
            return;
        m_WsaStarted = true;
        m_Socket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<u_short>(std::atoi(address.c_str() + colon + 1)));
        inet_pton(AF_INET, address.substr(0, colon).c_str(), &addr.sin_addr);
        if (m_Socket == INVALID_SOCKET || connect(m_Socket, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            Disconnect();
            return;
        }
    }
    ~SerialPeer()
    {
        Disconnect();
        if (m_WsaStarted)
            WSACleanup();
    }
    SerialPeer(const SerialPeer&) = delete;
    SerialPeer& operator=(const SerialPeer&) = delete;

    bool Ok() const { return m_Socket != INVALID_SOCKET && !m_Ports.empty(); }
    std::string PortName(size_t line) const { return line < m_Ports.size() ? m_Ports[line] : std::string(); }

    bool Renew(size_t line) { return Ask("RENEW " + std::to_string(line)) == "OK"; }
    bool HangUp(size_t line) { return Ask("HANGUP " + std::to_string(line)) == "OK"; }
    bool Send(size_t line, const std::vector<uint8_t>& bytes)
    {
        static const char digits[] = "0123456789abcdef";
        std::string hex;
        for (uint8_t b : bytes)
            hex += {digits[b >> 4], digits[b & 15]};
        return Ask("SEND " + std::to_string(line) + " " + hex) == "OK";
    }
    // Up to `count` bytes the program wrote, waiting up to 10 s for all of them.
    std::vector<uint8_t> Receive(size_t line, size_t count)
    {
        return Bytes(Ask("RECV " + std::to_string(line) + " " + std::to_string(count) + " 10000"));
    }
    // Whatever has arrived, after waiting up to 100 ms for something.
    std::vector<uint8_t> ReceiveSome(size_t line) { return Bytes(Ask("SOME " + std::to_string(line) + " 100")); }
    // Bytes waiting for the program to read; -1 on failure.
    int InQueue(size_t line)
    {
        const std::string reply = Ask("INQUEUE " + std::to_string(line));
        return reply.rfind("OK ", 0) == 0 ? std::atoi(reply.c_str() + 3) : -1;
    }
    // Empty when the peer cannot tell.
    Settings GetSettings(size_t line)
    {
        Settings s;
        const std::string reply = Ask("SETTINGS " + std::to_string(line));
        std::istringstream in(reply.rfind("OK ", 0) == 0 ? reply.substr(3) : std::string());
        for (std::string field; in >> field;) {
            const size_t eq = field.find('=');
            if (eq != std::string::npos)
                s[field.substr(0, eq)] = field.substr(eq + 1);
        }
        return s;
    }

private:
    void Disconnect()
    {
        if (m_Socket != INVALID_SOCKET)
            closesocket(m_Socket);
        m_Socket = INVALID_SOCKET;
    }

    // One request line, one reply line ("" when the peer is gone).
    std::string Ask(const std::string& request)
    {
        if (m_Socket == INVALID_SOCKET)
            return {};
        const std::string line = request + "\n";
        size_t sent = 0;
        while (sent < line.size()) {
            const int n = send(m_Socket, line.data() + sent, int(line.size() - sent), 0);
            if (n <= 0)
                return {};
            sent += size_t(n);
        }
        while (m_Pending.find('\n') == std::string::npos) {
            char buf[65536];
            const int n = recv(m_Socket, buf, sizeof buf, 0);
            if (n <= 0)
                return {};
            m_Pending.append(buf, size_t(n));
        }
        const std::string reply = m_Pending.substr(0, m_Pending.find('\n'));
        m_Pending.erase(0, reply.size() + 1);
        return reply;
    }

    static std::vector<uint8_t> Bytes(const std::string& reply)
    {
        std::vector<uint8_t> out;
        if (reply.rfind("OK", 0) != 0)
            return out;
        const std::string hex = reply.size() > 3 ? reply.substr(3) : std::string();
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            out.push_back(static_cast<uint8_t>(std::strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
        return out;
    }

    SOCKET m_Socket = INVALID_SOCKET;
    bool m_WsaStarted = false;
    std::vector<std::string> m_Ports;
    std::string m_Pending;
};

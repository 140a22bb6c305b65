#pragma once
// The Ethernet side of one unit's device instance: the HOE session to the
// unit and the receive list that its receive thread fills. Device instances
// of the Ethernet-capable drivers derive from it beside their device's
// instance class (CKVX_HdwHoeDevice::CDeviceInstance,
// CKVX_HdwHoeFtdiUartBridgedDevice::CDeviceInstance).
//
// Session: CreateEthernetLink connects to UnitAddress:UnitPort from a local
// port of the manager's pool and starts the receive thread; from then on
// both sides send a keep-alive every 250 ms, event data from the unit is
// appended to RxList, and when the unit has been silent for the link
// time-out "LINK TIMEOUT!!!\n" goes once to the debug output.
// EthDisconnect ends the session and gives the local port back to the
// manager it came from, so a link is closed before its manager is destroyed
// (stopping the manager closes every port, and with them the links).

#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxMutex.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/links/HdwHoe.h>

#include <cstdint>

class CKVX_HdwManager;

namespace hdw::links {
class CHoeSession;
class CHoeLinkSink;
} // namespace hdw::links

class HDWLIB_EXPORT CKVX_HdwHoeLink {
public:
    // What a unit reports in its Detect reply.
    class HDWLIB_EXPORT CDetectInfo : public CKVX_Object {
    public:
        CDetectInfo() = default;
        CDetectInfo(const CDetectInfo&) = default;
        CDetectInfo(CDetectInfo&&) = default;
        CDetectInfo& operator=(const CDetectInfo&) = default;
        CDetectInfo& operator=(CDetectInfo&&) = default;
        ~CDetectInfo() override;

        unsigned DeviceKind = 0;
        CKVX_String ModelName;
        CKVX_String SerialNumber;
        CKVX_String Revision;
        CKVX_IpAddress Address;
        unsigned short Port = 0;
    };

    // Time a Detect waits for the reply, milliseconds.
    static constexpr unsigned DetectTimeoutMs = 500;

    CKVX_HdwHoeLink();
    // Ends the session. A derived class ends it in its own destructor
    // already, because the receive thread calls its virtual operations.
    virtual ~CKVX_HdwHoeLink();
    CKVX_HdwHoeLink(const CKVX_HdwHoeLink&) = delete;
    CKVX_HdwHoeLink& operator=(const CKVX_HdwHoeLink&) = delete;

    // Detect sent to UnitAddress:UnitPort: 0 and the reply, or 14.
    unsigned EthDetect(CDetectInfo& info, unsigned timeoutMs = DetectTimeoutMs);
    // The session handshake alone (no receive thread): 0, 14, 21 or 13.
    unsigned EthConnect(CKVX_HdwManager* manager, unsigned short linkTimeoutMs);
    // Disconnects (when connected), stops the receive thread, releases the port. 0.
    unsigned EthDisconnect();
    // EthConnect and the receive thread; 0 at once when already connected.
    unsigned CreateEthernetLink(CKVX_HdwManager* manager, unsigned short linkTimeoutMs);
    bool IsEthConnected() const;

    // The unit's frame in one send-command packet: 0 (no reply is awaited;
    // without a session nothing is sent), 2 for more than 1350 bytes.
    unsigned EthSendCmd(unsigned char* data, unsigned short length);
    // Sends a built packet to the unit on the session's socket.
    unsigned SendPacket(CKVX_HdwHoe::t_HoePacket_Union& packet);

    // The receive thread: EthRxThreadFunction(this) runs EthRxProc, which
    // returns when the session ends.
    static unsigned EthRxThreadFunction(void* link);
    unsigned EthRxProc();
    // A packet that passed the acceptance checks and carries the session id.
    unsigned EthProcessRxPacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size);
    // Driver check of an accepted packet: non-zero drops it. Base: 0.
    virtual unsigned EthValidatePacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size);
    // A port packet (class 0xA, port type not 0) of this session, on the
    // receive thread. Base: dropped, 0.
    virtual unsigned EthProcessPortPacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size);
    unsigned EthProcessHoePacket(CKVX_HdwHoe::t_HoePacket_Union& packet, unsigned size);
    // Appends the payload of an event-data packet to RxList.
    unsigned EthProcessHoeEventDataPacket(CKVX_HdwHoe::t_HoePacket_Union& packet);

    // The receive list, for the Link operations: take up to maxBytes, and count.
    unsigned EthRead(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead);
    unsigned EthGetReadBufferBytes(unsigned& count);

    // Local UDP port of the session (0 when none).
    unsigned short GetEthLocalPort() const;

    // Non-zero: this unit is reached over Ethernet.
    unsigned EthernetMode = 0;
    // Address words and client identifier of the session's packets.
    unsigned FirstWord = 0;
    unsigned SecondWord = 0;
    unsigned ClientId = 0;
    // Where the unit listens.
    CKVX_IpAddress UnitAddress;
    unsigned short UnitPort = 0;
    // What the unit sent and nobody has read yet, guarded by RxMutex.
    CKVX_Mutex RxMutex;
    CKVX_List<unsigned char> RxList;

private:
    hdw::links::CHoeSession* m_Session;
    hdw::links::CHoeLinkSink* m_Sink;
};

#pragma once
// One channel of one unit (an ARINC 429 receiver, a CAN controller, a UART).
// A port owns its services; it is opened with a parameter object and, while
// open, receives the timer tick and its unit's events and passes both on to
// its services in the order they were enabled.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwService.h>

#include <atomic>
#include <cstdint>

class CKVX_HdwDevice;
class CKVX_HdwEvent;

// Port type codes (GetPortType). ARINC 429 and CAN are fixed by the unit
// protocol; the others are this library's.
enum t_HdwPortType : unsigned {
    HDW_PORT_UART = 1,
    HDW_PORT_ARINC429_TX = 2,
    HDW_PORT_ARINC429_RX = 3,
    HDW_PORT_CAN = 4,
    HDW_PORT_MILSTD1553 = 5,
    HDW_PORT_DISCRETE_IN = 6,
    HDW_PORT_DISCRETE_OUT = 7,
    HDW_PORT_I2C = 8,
    HDW_PORT_SPI = 9,
};

class HDWLIB_EXPORT CKVX_HdwPort : public CKVX_HdwObject {
public:
    // What Open takes. Each port class derives its own and adds its settings.
    class HDWLIB_EXPORT CParameters : public CKVX_Object {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        unsigned PortNum = 0;
        // Time allowed for a channel command to be confirmed, in milliseconds.
        unsigned Timeout = 1000;
        unsigned Flags = 0;
    };

    class HDWLIB_EXPORT CServiceList : public CKVX_List<CKVX_HdwService*> {
    public:
        using CKVX_List<CKVX_HdwService*>::CKVX_List;
    };

    CKVX_HdwPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    // Deletes the services; a port is closed before it is destroyed.
    ~CKVX_HdwPort() override;
    CKVX_HdwPort(const CKVX_HdwPort&) = delete;
    CKVX_HdwPort& operator=(const CKVX_HdwPort&) = delete;

    // Virtual operations, in interface order.
    virtual unsigned Open(CParameters* params);
    virtual unsigned OnOpening(CParameters* params);
    virtual unsigned Close();
    virtual unsigned EnableService(
        unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params);
    virtual unsigned DisableService(CKVX_HdwService* service);
    virtual unsigned DisableAllServices();
    virtual unsigned AbortAllServices();
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned HdwTimerHandler(uint64_t ticks);
    virtual unsigned ProcessEvent(CKVX_HdwEvent* event);

    unsigned GetPortType() const { return m_PortType; }
    bool IsOpen() const { return m_Open.load(std::memory_order_acquire); }
    CKVX_HdwObject* GetDevice() const { return m_Device; }
    CKVX_HdwDevice* GetHdwDevice() const;
    unsigned GetDeviceId() const { return m_DeviceInstance; }
    CKVX_String GetChannelId() const { return m_ChannelId; }
    const CKVX_String& GetChannelIdRef() const { return m_ChannelId; }
    unsigned GetPortNum() const { return m_PortNum; }
    CServiceList& GetServiceList() { return m_Services; }
    unsigned GetServiceCount() const { return m_Services.GetLength(); }
    // The enabled service of that type, or null.
    CKVX_HdwService* FindService(unsigned serviceType);
    // True when the port's manager exists and runs.
    bool IsManagerRunning() const;

    void DeviceLock();
    void DeviceUnlock();

protected:
    unsigned AttachHdwTimerToPort();
    unsigned DetachHdwTimerFromPort();

    unsigned m_PortType = 0;
    std::atomic<bool> m_Open{false};
    CKVX_HdwObject* m_Device;
    unsigned m_DeviceInstance;
    CKVX_String m_ChannelId;
    unsigned m_PortNum = 0;
    CServiceList m_Services;
    uint32_t m_UserWord = 0;
    uint64_t m_UserWords[3] = {};
};

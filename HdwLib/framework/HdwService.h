#pragma once
// An activity that runs on an open port: a receive buffer, a transmit
// scheduler, a signal source. The port owns it, starts it at Open, stops it at
// Close, and passes it the tick and the unit's events.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/framework/HdwObject.h>

#include <atomic>
#include <cstdint>

class CKVX_HdwDevice;
class CKVX_HdwEvent;
class CKVX_HdwPort;

// Service type codes (GetServiceType, EnableService).
enum t_HdwServiceType : unsigned {
    HDW_SERVICE_SIGNAL = 1,
    HDW_SERVICE_BYTE_IN_BUFFER = 2,
    HDW_SERVICE_BYTE_OUT_BUFFER = 3,
    HDW_SERVICE_ARINC429_IN_BUFFER = 4,
    HDW_SERVICE_ARINC429_OUT_BUFFER = 5,
    HDW_SERVICE_ARINC429_LABEL_IN = 6,
    HDW_SERVICE_ARINC429_LABEL_OUT = 7,
    HDW_SERVICE_CAN_OUT_BUFFER = 8,
    HDW_SERVICE_CAN_IN_BUFFER = 9,
    HDW_SERVICE_MIL1553_BC = 10,
    HDW_SERVICE_MIL1553_RT = 11,
    HDW_SERVICE_SPI_MASTER = 14,
    HDW_SERVICE_DATA_GENERATOR = 15,
    HDW_SERVICE_I2C_MASTER = 16,
    HDW_SERVICE_DISCRETE_IN = 17,
    HDW_SERVICE_DISCRETE_OUT = 18,
};

// Service run states (GetStatus).
enum t_HdwServiceStatus : unsigned {
    HDW_SERVICE_STOPPED = 0,
    HDW_SERVICE_RUNNING = 1,
    HDW_SERVICE_FAILED = 2,
};

class HDWLIB_EXPORT CKVX_HdwService : public CKVX_HdwObject {
public:
    // Each service class derives its own parameter class from this one.
    class HDWLIB_EXPORT CParameters : public CKVX_Object {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;
    };

    explicit CKVX_HdwService(CKVX_HdwObject* port);
    ~CKVX_HdwService() override;
    CKVX_HdwService(const CKVX_HdwService&) = delete;
    CKVX_HdwService& operator=(const CKVX_HdwService&) = delete;

    // Virtual operations, in interface order.
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    virtual unsigned HdwTimerHandler(uint64_t ticks);
    virtual unsigned Start();
    virtual unsigned Stop();
    virtual unsigned Abort();
    virtual unsigned ProcessEvent(CKVX_HdwEvent* event);

    unsigned GetServiceType() const { return m_ServiceType; }
    CKVX_HdwObject* GetPort() const { return m_Port; }
    CKVX_HdwPort* GetHdwPort() const;
    unsigned GetStatus() const { return m_Status.load(std::memory_order_acquire); }
    // The port's device, or null when the service has no port.
    CKVX_HdwDevice* GetDevice() const;

    void DeviceLock();
    void DeviceUnlock();

protected:
    void SetStatus(unsigned status) { m_Status.store(status, std::memory_order_release); }

    unsigned m_ServiceType = 0;
    CKVX_HdwObject* m_Port;
    std::atomic<unsigned> m_Status{0};
};

// Holds a service's device lock for a scope.
class CKVX_HdwServiceLock {
public:
    explicit CKVX_HdwServiceLock(CKVX_HdwService& service) : m_Service(service) { m_Service.DeviceLock(); }
    ~CKVX_HdwServiceLock() { m_Service.DeviceUnlock(); }
    CKVX_HdwServiceLock(const CKVX_HdwServiceLock&) = delete;
    CKVX_HdwServiceLock& operator=(const CKVX_HdwServiceLock&) = delete;

private:
    CKVX_HdwService& m_Service;
};

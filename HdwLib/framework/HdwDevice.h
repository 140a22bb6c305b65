#pragma once
// One driver class for one kind of interface unit; it stands for every unit of
// that kind that enumeration found (one CDeviceInstance each) and owns their
// ports through the port descriptors.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxMutex.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/core/KvxVector.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwInitPortDesc.h>
#include <HdwLib/framework/HdwPort.h>

#include <atomic>
#include <cstdint>
#include <vector>

class CKVX_HdwEvent;
class CKVX_HdwManager;

class HDWLIB_EXPORT CKVX_HdwDevice : public CKVX_HdwObject {
public:
    // The state of one physical unit. Unit drivers derive their own and open
    // and close a channel on the unit in OpenPort/ClosePort.
    class HDWLIB_EXPORT CDeviceInstance : public CKVX_Object {
    public:
        // Throws CKVX_Exception(32, this, 0) when the mutex cannot be created.
        CDeviceInstance();
        ~CDeviceInstance() override;
        CDeviceInstance(const CDeviceInstance&) = delete;
        CDeviceInstance& operator=(const CDeviceInstance&) = delete;

        virtual unsigned OpenPort(CKVX_HdwPort* port, CKVX_HdwPort::CParameters* params);
        virtual unsigned ClosePort(CKVX_HdwPort* port);

        bool Lock();
        bool Unlock();
        // Set and cleared by the transport in Open/Close of the instance; read by the tick.
        bool IsOpen() const { return m_Open.load(std::memory_order_acquire); }
        void SetOpen(bool open) { m_Open.store(open, std::memory_order_release); }
        CKVX_Mutex* GetMutex() { return m_Mutex; }

        // Open ports of this unit (attached to the tick); not owned.
        CKVX_List<CKVX_HdwPort*>& GetPortList() { return m_PortList; }

        // Identity of the unit, for port identifiers.
        CKVX_String SerialNumber;
        CKVX_String Revision;
        unsigned UserWord = 0;
        // The link the unit was found on ("/dev/ttyUSB0", "udp:127.0.0.1:55003").
        CKVX_String Link;

    private:
        std::atomic<bool> m_Open{false};
        CKVX_Mutex* m_Mutex = nullptr;
        CKVX_List<CKVX_HdwPort*> m_PortList;
    };

    // Static description of one port of one unit.
    class HDWLIB_EXPORT CPortDescriptor : public CKVX_Object {
    public:
        // Text of Tag in every new descriptor.
        static constexpr const char* DefaultTag = "KVX-HDW-PORT";

        CPortDescriptor();
        CPortDescriptor(const CPortDescriptor&) = default;
        CPortDescriptor(CPortDescriptor&&) = default;
        CPortDescriptor& operator=(const CPortDescriptor&) = default;
        CPortDescriptor& operator=(CPortDescriptor&&) = default;
        ~CPortDescriptor() override;
        bool operator==(const CPortDescriptor& other) const;
        bool operator!=(const CPortDescriptor& other) const { return !(*this == other); }

        CKVX_String Tag;
        CKVX_String Manufacturer;
        CKVX_String FullName; // the unit's model word
        CKVX_String Revision;
        CKVX_String SerialNumber;
        CKVX_String IntChannel; // channel number inside the unit, eight digits
        CKVX_String Link;
        CKVX_String Description; // for people: "ARINC 429 TX 0"
        unsigned PortType = 0;
        int AbsNum = -1; // -1 until the manager numbers the port
        unsigned Channel = 0; // channel number inside the unit
        // The port serving this descriptor; owned by the device (DestroyPorts).
        CKVX_HdwPort* Port = nullptr;
    };

    class HDWLIB_EXPORT CPortDescriptorsList : public CKVX_List<CPortDescriptor> {
    public:
        using CKVX_List<CPortDescriptor>::CKVX_List;
    };
    class HDWLIB_EXPORT CPortDescriptorsVector : public CKVX_Vector<CPortDescriptor> {
    public:
        using CKVX_Vector<CPortDescriptor>::CKVX_Vector;
    };
    class HDWLIB_EXPORT CPortDescriptorsMatrix : public CKVX_Vector<CPortDescriptorsVector> {
    public:
        using CKVX_Vector<CPortDescriptorsVector>::CKVX_Vector;
    };
    using CPortDescriptorMatrix = CPortDescriptorsMatrix;
    class HDWLIB_EXPORT CDeviceList : public CKVX_Vector<CDeviceInstance*> {
    public:
        using CKVX_Vector<CDeviceInstance*>::CKVX_Vector;
    };
    class HDWLIB_EXPORT CPortList : public CKVX_List<CKVX_HdwPort*> {
    public:
        using CKVX_List<CKVX_HdwPort*>::CKVX_List;
    };

    CKVX_HdwDevice();
    ~CKVX_HdwDevice() override;
    CKVX_HdwDevice(const CKVX_HdwDevice&) = delete;
    CKVX_HdwDevice& operator=(const CKVX_HdwDevice&) = delete;

    // Virtual operations, in interface order.
    virtual unsigned Init(unsigned instanceCount);
    virtual unsigned Autobridge(CPortDescriptorMatrix& descriptors);
    virtual unsigned Run();
    virtual unsigned Stop();
    virtual unsigned Open(unsigned instance);
    virtual unsigned Close(unsigned instance);
    virtual unsigned HdwTimerHandler(uint64_t ticks);
    virtual unsigned HdwTimerStartDeviceIntanceHandler(unsigned instance, uint64_t ticks);
    virtual unsigned HdwTimerEndDeviceIntanceHandler(unsigned instance, uint64_t ticks);

    uint64_t GetDeviceCode() const { return m_DeviceCode; }
    unsigned GetInstanceCount() const { return m_DeviceList.GetLength(); }
    CDeviceInstance* GetDeviceInstance(unsigned instance);
    unsigned GetPortDescriptor(unsigned instance, CPortDescriptorsVector** out);
    CPortDescriptorsMatrix& GetPortDescriptors() { return m_PortDescriptors; }

    unsigned SetLinkTimeout(unsigned short timeout);
    unsigned short GetLinkTimeout() const { return m_LinkTimeout; }
    bool CanClose(unsigned instance);

    void DeviceLock(unsigned instance);
    void DeviceUnlock(unsigned instance);
    unsigned AttachPortToHdwTimer(unsigned instance, CKVX_HdwPort* port);
    unsigned DetachPortFromHdwTimer(unsigned instance, CKVX_HdwPort* port);

    // Offers an event to the open ports of the instance, in list order, until
    // one returns non-zero. The caller holds the instance lock.
    unsigned ProcessEventHandlers(unsigned instance, CKVX_HdwEvent* event);
    // The same, only to ports of `portType` whose channel id equals the event's.
    unsigned ProcessEventHandlers(unsigned instance, unsigned portType, CKVX_HdwEvent* event);

    CKVX_HdwManager* GetManager() const { return m_Manager; }
    // Manufacturer text and the unit's model word (identity of its ports).
    const CKVX_String& GetManufacturer() const { return m_Manufacturer; }
    const CKVX_String& GetModelName() const { return m_ModelName; }
    const CKVX_String& GetDescription() const { return m_Description; }

    // Links handed over by the manager for the next Init, and whether the
    // driver may also scan for units on its own. Set by Enumerate.
    void SetEnumerationLinks(const std::vector<CKVX_HdwInitPortDesc*>& links, bool scan);
    unsigned GetEnumerationLinkCount() const { return static_cast<unsigned>(m_EnumLinks.size()); }
    CKVX_HdwInitPortDesc* GetEnumerationLink(unsigned index) const;
    bool IsScanRequested() const { return m_EnumScan; }

protected:
    friend class CKVX_HdwManager;

    void AbortAllServices(unsigned instance);
    void DestroyPorts();
    void DestroyDeviceList();
    // Adds one port to an instance's descriptors; the device takes ownership.
    // Fills the identity from the device and the instance.
    CPortDescriptor& AddPortDescriptor(
        unsigned instance, CKVX_HdwPort* port, unsigned channel, const CKVX_String& description);
    // Makes the instances an enumeration found (taken over; `found` is left
    // empty) the device's instances, each with an empty row of port
    // descriptors. With none found the device keeps no instances and no ports.
    // Returns the number of instances.
    template <class TInstance>
    unsigned AdoptInstances(std::vector<TInstance*>& found)
    {
        if (found.empty()) {
            DestroyPorts();
            DestroyDeviceList();
            return 0;
        }
        CKVX_HdwDevice::Init(static_cast<unsigned>(found.size()));
        for (TInstance* inst : found)
            m_DeviceList += inst;
        found.clear();
        return m_DeviceList.GetLength();
    }

    uint64_t m_DeviceCode = 0;
    CPortDescriptorsMatrix m_PortDescriptors;
    CDeviceList m_DeviceList;
    CKVX_String m_Manufacturer;
    CKVX_String m_ModelName;
    CKVX_String m_Description;
    uint32_t m_ClassWords[8] = {};
    unsigned short m_LinkTimeout = 0;
    CKVX_HdwManager* m_Manager = nullptr;

private:
    std::vector<CKVX_HdwInitPortDesc*> m_EnumLinks;
    bool m_EnumScan = true;
};

#pragma once
// The application's entry object: holds the attached drivers, runs the
// enumeration, numbers the ports per port type, owns the main timer whose
// tick drives every device, and lends local UDP ports to Ethernet links.
//
//     CKVX_HdwKvxHaldenDevice unit; // the manager does not own it: made first, gone last
//     CKVX_HdwManager manager;
//     manager.AttachDevice(&unit);
//     CKVX_HdwManager::CInitPortDesc link{3, "/dev/ttyUSB0"};
//     manager.Enumerate(&link, 1, CKVX_HdwManager::EnumerateNoScan);
//     manager.Run();
//     CKVX_HdwPort* rx = manager.GetPort(3, 0);   // ARINC 429 receiver 0
//
// The manager does not own the devices: stop it (or destroy it) before the
// devices are deleted.

#include <HdwLib/core/KvxMutex.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/core/KvxVector.h>
#include <HdwLib/core/KvxList.h>
#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwInitPortDesc.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwTimer.h>

#include <atomic>
#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwManager : public CKVX_HdwObject {
public:
    // Enumerate flag: only the listed links, no scan.
    static constexpr unsigned EnumerateNoScan = 1;
    // Default period of the main timer, milliseconds.
    static constexpr unsigned DefaultTimerPeriod = 1;
    // The local UDP ports lent to Ethernet links: 56100 to 56163.
    static constexpr unsigned short SysEthPortFirst = 56100;
    static constexpr unsigned short SysEthPortCount = 64;

    using CInitPortDesc = CKVX_HdwInitPortDesc;
    class CPortIdentifier; // HdwPortIdentifier.h

    class HDWLIB_EXPORT CParameters : public CKVX_Object {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // Main-timer period in milliseconds (1 to 1000).
        unsigned TimerPeriod = DefaultTimerPeriod;
        // A unit whose link fails keeps its open ports and services and is
        // opened again when it answers (command-protocol units; off: its
        // services fail and the application opens the ports again).
        bool Reconnect = false;
    };

    // The manager's record of one numbered port.
    class HDWLIB_EXPORT CPortDescriptor : public CKVX_Object {
    public:
        CPortDescriptor() = default;
        CPortDescriptor(const CPortDescriptor&) = default;
        CPortDescriptor(CPortDescriptor&&) = default;
        CPortDescriptor& operator=(const CPortDescriptor&) = default;
        CPortDescriptor& operator=(CPortDescriptor&&) = default;
        ~CPortDescriptor() override;

        unsigned AbsNum = 0;
        unsigned PortType = 0;
        CKVX_HdwPort* Port = nullptr;
        CKVX_HdwDevice* Device = nullptr;
        unsigned DeviceInstance = 0;
        CKVX_String Manufacturer;
        CKVX_String FullName;
        CKVX_String Revision;
        CKVX_String SerialNumber;
        CKVX_String IntChannel;
        CKVX_String Link;
        CKVX_String Description;
        // Port-identifier key ("" when the identity cannot be expressed as one).
        CKVX_String Key;
    };

    // What GetPortList reports of one port.
    class HDWLIB_EXPORT CPortInfo : public CKVX_Object {
    public:
        CPortInfo() = default;
        CPortInfo(const CPortInfo&) = default;
        CPortInfo(CPortInfo&&) = default;
        CPortInfo& operator=(const CPortInfo&) = default;
        CPortInfo& operator=(CPortInfo&&) = default;
        ~CPortInfo() override;

        unsigned PortType = 0;
        unsigned AbsNum = 0;
        CKVX_HdwPort* Port = nullptr;
        uint64_t DeviceCode = 0;
        unsigned DeviceInstance = 0;
        CKVX_String ChannelId;
        CKVX_String Manufacturer;
        CKVX_String FullName;
        CKVX_String Revision;
        CKVX_String SerialNumber;
        CKVX_String IntChannel;
        CKVX_String Link;
        CKVX_String Description;
        CKVX_String Key;
    };

    class HDWLIB_EXPORT CPortInfoVector : public CKVX_Vector<CPortInfo> {
    public:
        using CKVX_Vector<CPortInfo>::CKVX_Vector;
    };

    class HDWLIB_EXPORT CSysEthPort : public CKVX_Object {
    public:
        CSysEthPort() = default;
        CSysEthPort(unsigned short port) : Port(port) {}
        CSysEthPort(const CSysEthPort&) = default;
        CSysEthPort(CSysEthPort&&) = default;
        CSysEthPort& operator=(const CSysEthPort&) = default;
        CSysEthPort& operator=(CSysEthPort&&) = default;
        ~CSysEthPort() override;

        unsigned short InUse = 0;
        unsigned short Port = 0;
    };

    class HDWLIB_EXPORT CDeviceList : public CKVX_List<CKVX_HdwDevice*> {
    public:
        using CKVX_List<CKVX_HdwDevice*>::CKVX_List;
    };
    class HDWLIB_EXPORT CDeviceVector : public CKVX_Vector<CKVX_HdwDevice*> {
    public:
        using CKVX_Vector<CKVX_HdwDevice*>::CKVX_Vector;
    };
    class HDWLIB_EXPORT CPortDescriptorVector : public CKVX_Vector<CPortDescriptor> {
    public:
        using CKVX_Vector<CPortDescriptor>::CKVX_Vector;
    };
    class HDWLIB_EXPORT CPortTable : public CKVX_Vector<CPortDescriptorVector> {
    public:
        using CKVX_Vector<CPortDescriptorVector>::CKVX_Vector;
    };
    class HDWLIB_EXPORT CSysEthPortVector : public CKVX_Vector<CSysEthPort> {
    public:
        using CKVX_Vector<CSysEthPort>::CKVX_Vector;
    };

    CKVX_HdwManager();
    // Stops the manager; the attached devices are not deleted.
    ~CKVX_HdwManager() override;
    CKVX_HdwManager(const CKVX_HdwManager&) = delete;
    CKVX_HdwManager& operator=(const CKVX_HdwManager&) = delete;

    // 10 while running; 7 when the object or its device code is already attached.
    unsigned AttachDevice(CKVX_HdwDevice* device);

    // A scan by every attached driver.
    unsigned Enumerate();
    // Each listed link goes to the attached driver with its device code; with
    // EnumerateNoScan only those links are probed. Each link's Result says
    // whether a unit answered. 10 while running.
    unsigned Enumerate(CInitPortDesc* links, unsigned count, unsigned flags);

    // Every port, sorted by PortSorter (ascending absolute number; ports of
    // equal number in ascending port type).
    unsigned GetPortList(CPortInfoVector& list);
    // The ports of one type, in ascending absolute number.
    unsigned GetPortList(unsigned portType, CPortInfoVector& list);
    // The port of that type and absolute number, or null.
    CKVX_HdwPort* GetPort(unsigned portType, unsigned absNum);
    // The manager's record of a port, or null.
    const CPortDescriptor* GetPortDescriptor(unsigned portType, unsigned absNum) const;
    unsigned GetPortCount(unsigned portType) const;
    // The port whose identity matches a stored port-identifier key (the
    // absolute number in the key is ignored), or null; `absNum` receives its
    // current absolute number.
    CKVX_HdwPort* FindPort(const CKVX_String& key, unsigned* absNum = nullptr);
    static int PortSorter(const CPortDescriptor& a, const CPortDescriptor& b);

    unsigned Run();
    unsigned Stop();
    bool IsRunning() const { return m_Running.load(std::memory_order_acquire); }
    unsigned StartMainTimer(unsigned periodMs);
    unsigned StopMainTimer();
    static void HdwTimerHandler(uint64_t ticks, void* manager);

    // 10 while running; 2 for a period outside 1..1000 ms.
    unsigned SetParameters(const CParameters& params);
    unsigned GetParameters(CParameters& params) const;
    // CParameters::Reconnect as last set.
    bool IsReconnectEnabled() const { return m_Reconnect; }
    // Ticks made by the main timer since the manager was created.
    uint64_t GetTickCounter() const { return m_MainTimer.GetTickCounter(); }

    unsigned GetSysEthPort(unsigned short& port);
    void ReleaseSysEthPort(unsigned short port);

    unsigned GetDeviceCount() const { return m_DeviceList.GetLength(); }
    CKVX_HdwDevice* GetDevice(unsigned index);
    CKVX_HdwDevice* FindDevice(uint64_t deviceCode);

    void Destroy();
    void DestroyDeviceList();

protected:
    // The first absolute number of that port type that no port has yet.
    unsigned GetFirstFreeAbsoluteNum(unsigned portType);
    void FillPortTable(CKVX_HdwDevice* device);

private:
    std::atomic<bool> m_Running{false};
    CKVX_HdwTimer m_MainTimer;
    CDeviceList m_DeviceList;
    CDeviceVector m_DeviceVector;
    CPortTable m_PortTable;
    unsigned m_TimerPeriod = DefaultTimerPeriod;
    bool m_Reconnect = false;
    CSysEthPortVector m_SysEthPorts;
    unsigned m_SysEthCursor = 0;
    CKVX_Mutex m_SysEthMutex;
};

#include <HdwLib/framework/HdwPortIdentifier.h>

#pragma once
// Root of the hardware object model (devices, ports, services).

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>

// The library's result codes. Every operation of the hardware classes returns
// one of these (0 = success); nothing is thrown for a bad argument or state.
enum t_HdwResult : unsigned {
    HDW_OK = 0,
    HDW_ERR_SERVICE_CHANGE_ON_OPEN_PORT = 1,
    HDW_ERR_ARGUMENT = 2,
    HDW_ERR_NOTHING_TO_READ = 4,
    HDW_ERR_ALREADY_ATTACHED = 7,
    HDW_ERR_NOT_SUPPORTED = 8,
    HDW_ERR_WRONG_STATE = 10,
    HDW_ERR_MALFORMED_EVENT = 11,
    HDW_ERR_SYSTEM_CALL = 13,
    HDW_ERR_LINK = 14,
    HDW_ERR_SERVICE = 15,
    HDW_ERR_PORT_ALREADY_OPEN = 18,
    HDW_ERR_PORT_NOT_OPEN = 19,
    HDW_ERR_NO_LOCAL_PORT = 21,
    HDW_ERR_PROBE_INCOMPLETE = 22,
    HDW_ERR_WRITE_TIMEOUT = 23,
    HDW_ERR_SERVICE_ALREADY_ENABLED = 26,
    HDW_ERR_SERVICE_NOT_RUNNING = 29,
    HDW_ERR_RESOURCES = 32,
    HDW_ERR_NO_ACK = 33, // an I2C address or data byte was not acknowledged
    HDW_ERR_BUS_FAULT = 34, // I2C bus fault: clock held, data line stuck or arbitration lost
};

class HDWLIB_EXPORT CKVX_HdwObject : public CKVX_Object {
public:
    using t_DebugOutput = void (*)(const char* text);

    CKVX_HdwObject() = default;
    CKVX_HdwObject(const CKVX_HdwObject&) = default;
    CKVX_HdwObject(CKVX_HdwObject&&) = default;
    CKVX_HdwObject& operator=(const CKVX_HdwObject&) = default;
    CKVX_HdwObject& operator=(CKVX_HdwObject&&) = default;
    ~CKVX_HdwObject() override;

    // Name of a bus type code ("PCI", "USB", ...); "Unknown" for other codes.
    static CKVX_String GetBusName(unsigned busType);
    // The first 32-bit word of the record `handle` points to (0 for null).
    static unsigned GetBusType(void* handle);

    // Installs the sink that receives the library's diagnostic text (null to
    // remove it). Without a sink nothing is written anywhere on Linux; on
    // Windows the text also goes to the debugger.
    static void SetDebugOutput(t_DebugOutput sink);
    static t_DebugOutput GetDebugOutput();
    static void DebugOutput(const char* text);

    // Short English text for a result code, for tools and logs.
    static const char* GetResultText(unsigned code);
};

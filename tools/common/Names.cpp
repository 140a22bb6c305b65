#include "Names.h"

namespace hdwnames {

namespace {

template <class D>
CKVX_HdwDevice* Make()
{
    return new D;
}

const Driver kDrivers[] = {
    {"halden", 3, &Make<CKVX_HdwKvxHaldenDevice>},
    {"bexley", 4, &Make<CKVX_HdwKvxBexleyDevice>},
    {"travin", 5, &Make<CKVX_HdwKvxTravinDevice>},
    {"arvane", 6, &Make<CKVX_HdwKvxArvaneDevice>},
    {"wendal", 7, &Make<CKVX_HdwKvxWendalDevice>},
    {"haldensmall", 8, &Make<CKVX_HdwKvxHaldenSmallDevice>},
    {"sorrel", 9, &Make<CKVX_HdwKvxSorrelDevice>},
    {"pellor", 10, &Make<CKVX_HdwKvxPellorDevice>},
    {"quillan", 11, &Make<CKVX_HdwKvxQuillanDevice>},
    {"mirrow", 12, &Make<CKVX_HdwKvxMirrowDevice>},
    {"pcuart", CKVX_HdwStdUartDevice::StdUartDeviceCode, &Make<CKVX_HdwStdUartDevice>},
    {"udpuart", CKVX_HdwUdpEmulatorDevice::UdpEmulatorDeviceCode, &Make<CKVX_HdwUdpEmulatorDevice>},
};

constexpr PortType kPortTypes[] = {
    {HDW_PORT_UART, "uart"},
    {HDW_PORT_ARINC429_TX, "a429tx"},
    {HDW_PORT_ARINC429_RX, "a429rx"},
    {HDW_PORT_CAN, "can"},
    {HDW_PORT_MILSTD1553, "1553"},
    {HDW_PORT_DISCRETE_IN, "din"},
    {HDW_PORT_DISCRETE_OUT, "dout"},
    {HDW_PORT_I2C, "i2c"},
    {HDW_PORT_SPI, "spi"},
};

} // namespace

std::span<const Driver> Drivers()
{
    return kDrivers;
}

std::span<const PortType> PortTypes()
{
    return kPortTypes;
}

const Driver* DriverNamed(const std::string& name)
{
    for (const Driver& d : kDrivers)
        if (name == d.Name)
            return &d;
    return nullptr;
}

const Driver* DriverWithCode(uint64_t code)
{
    for (const Driver& d : kDrivers)
        if (code == d.Code)
            return &d;
    return nullptr;
}

std::string DriverList()
{
    std::string text;
    for (const Driver& d : kDrivers)
        text += (text.empty() ? "" : ", ") + std::to_string(d.Code) + " " + d.Name;
    return text;
}

std::string PortTypeName(unsigned type)
{
    for (const PortType& t : kPortTypes)
        if (t.Type == type)
            return t.Name;
    return "type" + std::to_string(type);
}

unsigned PortTypeNamed(const std::string& name)
{
    for (const PortType& t : kPortTypes)
        if (name == t.Name)
            return t.Type;
    return 0;
}

std::string PortTypeList()
{
    std::string text;
    for (const PortType& t : kPortTypes)
        text += (text.empty() ? "" : ", ") + std::string(t.Name);
    return text;
}

} // namespace hdwnames

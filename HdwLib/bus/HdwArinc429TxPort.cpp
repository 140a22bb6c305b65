#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

#include <cmath>
#include <cstdint>

CKVX_HdwArinc429TxPort::CParameters::~CParameters() = default;

CKVX_HdwArinc429TxPort::CKVX_HdwArinc429TxPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_ARINC429_TX;
}

CKVX_HdwArinc429TxPort::CKVX_HdwArinc429TxPort(const CKVX_HdwArinc429TxPort& other)
    : CKVX_HdwArinc429TxPort(other.m_Device, other.m_DeviceInstance, other.m_ChannelId)
{
    *this = other;
}

CKVX_HdwArinc429TxPort& CKVX_HdwArinc429TxPort::operator=(const CKVX_HdwArinc429TxPort& other)
{
    if (this != &other) {
        m_Device = other.m_Device;
        m_DeviceInstance = other.m_DeviceInstance;
        m_ChannelId = other.m_ChannelId;
        m_PortNum = other.m_PortNum;
        m_Parameters = other.m_Parameters;
    }
    return *this;
}

CKVX_HdwArinc429TxPort::~CKVX_HdwArinc429TxPort() = default;

unsigned CKVX_HdwArinc429TxPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::bus::OpenWithParameters(*this, m_Parameters, params);
}

unsigned CKVX_HdwArinc429TxPort::Close()
{
    return CKVX_HdwPort::Close();
}

static bool TxConflict(unsigned enabled, unsigned requested)
{
    switch (enabled) {
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return requested == HDW_SERVICE_ARINC429_OUT_BUFFER || requested == HDW_SERVICE_ARINC429_LABEL_OUT ||
            requested == HDW_SERVICE_DATA_GENERATOR;
    case HDW_SERVICE_ARINC429_OUT_BUFFER:
        return requested == HDW_SERVICE_BYTE_OUT_BUFFER || requested == HDW_SERVICE_ARINC429_LABEL_OUT ||
            requested == HDW_SERVICE_DATA_GENERATOR;
    case HDW_SERVICE_ARINC429_LABEL_OUT:
    case HDW_SERVICE_DATA_GENERATOR:
        // These two may run together; neither runs beside a buffer service.
        return requested == HDW_SERVICE_BYTE_OUT_BUFFER || requested == HDW_SERVICE_ARINC429_OUT_BUFFER;
    default: return false;
    }
}

unsigned CKVX_HdwArinc429TxPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::bus::AdmitService(*this, serviceType,
        {HDW_SERVICE_SIGNAL, HDW_SERVICE_BYTE_OUT_BUFFER, HDW_SERVICE_ARINC429_OUT_BUFFER,
            HDW_SERVICE_ARINC429_LABEL_OUT, HDW_SERVICE_DATA_GENERATOR},
        TxConflict);
}

unsigned CKVX_HdwArinc429TxPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}

unsigned CKVX_HdwArinc429TxPort::SetBaudRate(unsigned rate)
{
    return hdw::bus::StoreBaudRate(*this, m_Parameters, rate);
}

unsigned short CKVX_HdwArinc429TxPort::CalcWordIntergap(unsigned int baudRate, double bitTimes)
{
    const double us = (1.0 / static_cast<double>(baudRate)) * 1000000.0 * bitTimes + 0.5;
    // A rate of 0 gives an infinite quotient, which converts to 0; other
    // results keep their low 16 bits, as a 32-bit integer conversion would.
    if (!std::isfinite(us) || us < 0.0 || us >= 4294967296.0)
        return 0;
    return static_cast<unsigned short>(static_cast<uint32_t>(us) & 0xFFFFu);
}

#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/internal/PortParameters.h>
#include <HdwLib/bus/internal/ServiceAdmission.h>

CKVX_HdwArinc429RxPort::CParameters::~CParameters() = default;

CKVX_HdwArinc429RxPort::CKVX_HdwArinc429RxPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwPort(device, deviceInstance, channelId)
{
    m_PortType = HDW_PORT_ARINC429_RX;
}

CKVX_HdwArinc429RxPort::CKVX_HdwArinc429RxPort(const CKVX_HdwArinc429RxPort& other)
    : CKVX_HdwArinc429RxPort(other.m_Device, other.m_DeviceInstance, other.m_ChannelId)
{
    *this = other;
}

CKVX_HdwArinc429RxPort& CKVX_HdwArinc429RxPort::operator=(const CKVX_HdwArinc429RxPort& other)
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

CKVX_HdwArinc429RxPort::~CKVX_HdwArinc429RxPort() = default;

unsigned CKVX_HdwArinc429RxPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::bus::OpenWithParameters(*this, m_Parameters, params);
}

unsigned CKVX_HdwArinc429RxPort::Close()
{
    return CKVX_HdwPort::Close();
}

static bool RxConflict(unsigned enabled, unsigned requested)
{
    // Byte input, input buffer and label-oriented input exclude one another.
    auto isReader = [](unsigned t) {
        return t == HDW_SERVICE_BYTE_IN_BUFFER || t == HDW_SERVICE_ARINC429_IN_BUFFER ||
            t == HDW_SERVICE_ARINC429_LABEL_IN;
    };
    return isReader(enabled) && isReader(requested);
}

unsigned CKVX_HdwArinc429RxPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwPort::EnableService(serviceType, service, params))
        return rc;
    return hdw::bus::AdmitService(*this, serviceType,
        {HDW_SERVICE_SIGNAL, HDW_SERVICE_BYTE_IN_BUFFER, HDW_SERVICE_ARINC429_IN_BUFFER, HDW_SERVICE_ARINC429_LABEL_IN},
        RxConflict);
}

unsigned CKVX_HdwArinc429RxPort::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(m_Parameters, params);
}

unsigned CKVX_HdwArinc429RxPort::SetBaudRate(unsigned rate)
{
    return hdw::bus::StoreBaudRate(*this, m_Parameters, rate);
}

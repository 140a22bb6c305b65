#include <HdwLib/units/KvxArinc429BufferServices.h>
#include <HdwLib/units/KvxArinc429ByteServices.h>
#include <HdwLib/units/KvxArinc429DataGenerator.h>
#include <HdwLib/units/KvxArinc429LabelServices.h>
#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/internal/KvxPortOpen.h>

#include <algorithm>
#include <iterator>

// ---- transmitter ----------------------------------------------------------------

CKVX_HdwKvxArinc429TxPort::CKVX_HdwKvxArinc429TxPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwArinc429TxPort(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxArinc429TxPort::~CKVX_HdwKvxArinc429TxPort() = default;

unsigned CKVX_HdwKvxArinc429TxPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwArinc429TxPort>(*this, params, [](const auto& p) {
        unsigned char high = 0;
        unsigned short hi = 0, lo = 0;
        return p.WordIntergap != 0 &&
            CKVX_HdwKvxCommandUnit::ExtractArinc429TxBaudRateParameters(p.BaudRate, high, hi, lo) == 0;
    });
}

unsigned CKVX_HdwKvxArinc429TxPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwArinc429TxPort>(*this, params);
}

unsigned CKVX_HdwKvxArinc429TxPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwArinc429TxPort>(*this);
}

unsigned CKVX_HdwKvxArinc429TxPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwArinc429TxPort::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    case HDW_SERVICE_ARINC429_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429OutBufferService(this), service, params);
    case HDW_SERVICE_BYTE_OUT_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429ByteOutBufferService(this), service, params);
    case HDW_SERVICE_ARINC429_LABEL_OUT:
        if (!(m_Unit->GetUnitProfile().Commands & KvxCmdAtxCtxCtrl))
            return HDW_ERR_WRONG_STATE;
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429OutLbloService(this), service, params);
    case HDW_SERVICE_DATA_GENERATOR:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429TxDataGeneratorService(this), service, params);
    default: return HDW_ERR_WRONG_STATE;
    }
}

unsigned CKVX_HdwKvxArinc429TxPort::AttachConfiguration(bool enable)
{
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this);
    if (!inst || m_Channel >= inst->AtxCtrl.size())
        return HDW_ERR_ARGUMENT;
    inst->AtxCtrl[m_Channel].Enabled = enable ? 1 : 0;
    return m_Unit->AttachAtxConfigCommand(m_DeviceInstance, m_Channel, m_Parameters);
}

// ---- receiver -------------------------------------------------------------------

CKVX_HdwKvxArinc429RxPort::CKVX_HdwKvxArinc429RxPort(
    CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId)
    : CKVX_HdwArinc429RxPort(device, deviceInstance, channelId),
      m_Channel(hdw::units::ChannelNumber(channelId)),
      m_Unit(dynamic_cast<CKVX_HdwKvxCommandUnit*>(device))
{}

CKVX_HdwKvxArinc429RxPort::~CKVX_HdwKvxArinc429RxPort() = default;

unsigned CKVX_HdwKvxArinc429RxPort::Open(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::OpenChannel<CKVX_HdwArinc429RxPort>(
        *this, params, [](const auto& p) { return p.BaudRate == p.LowSpeed || p.BaudRate == p.HighSpeed; });
}

unsigned CKVX_HdwKvxArinc429RxPort::OnOpening(CKVX_HdwPort::CParameters* params)
{
    return hdw::units::AttachOnOpening<CKVX_HdwArinc429RxPort>(*this, params);
}

unsigned CKVX_HdwKvxArinc429RxPort::Close()
{
    return hdw::units::CloseChannel<CKVX_HdwArinc429RxPort>(*this);
}

unsigned CKVX_HdwKvxArinc429RxPort::EnableService(
    unsigned serviceType, CKVX_HdwService** service, CKVX_HdwService::CParameters* params)
{
    if (const unsigned rc = CKVX_HdwArinc429RxPort::EnableService(serviceType, service, params))
        return rc;
    switch (serviceType) {
    case HDW_SERVICE_SIGNAL:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxSignalService(this), service, params);
    case HDW_SERVICE_ARINC429_IN_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429InBufferService(this), service, params);
    case HDW_SERVICE_BYTE_IN_BUFFER:
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429ByteInBufferService(this), service, params);
    case HDW_SERVICE_ARINC429_LABEL_IN:
        if (!m_Unit->GetUnitProfile().Arinc429LabelInput)
            return HDW_ERR_WRONG_STATE;
        return hdw::units::InstallService(*this, new CKVX_HdwKvxArinc429InLbloService(this), service, params);
    default: return HDW_ERR_WRONG_STATE;
    }
}

unsigned CKVX_HdwKvxArinc429RxPort::AttachConfiguration(bool enable)
{
    CKVX_HdwKvxUnitInstance* inst = hdw::units::InstanceOf(this);
    if (!inst || m_Channel >= inst->ArxCtrl.size())
        return HDW_ERR_ARGUMENT;
    CKVX_HdwKvxArinc429RxCtrlStatus& ctrl = inst->ArxCtrl[m_Channel];
    ctrl.Enabled = enable ? 1 : 0;
    // The input service's filter, the byte stream's label, or every label
    // when no service filters.
    auto* in = hdw::units::ServiceOn<CKVX_HdwKvxArinc429InBufferService>(this, HDW_SERVICE_ARINC429_IN_BUFFER);
    auto* lblo = hdw::units::ServiceOn<CKVX_HdwArinc429InLbloService>(this, HDW_SERVICE_ARINC429_LABEL_IN);
    auto* bytes = hdw::units::ServiceOn<CKVX_HdwArinc429ByteInBufferService>(this, HDW_SERVICE_BYTE_IN_BUFFER);
    ctrl.HasFilter = in != nullptr || lblo != nullptr || bytes != nullptr;
    if (in)
        in->GetLabelTable(ctrl.LabelFlags);
    else if (lblo)
        lblo->GetLabelTable(ctrl.LabelFlags);
    else if (bytes) {
        std::fill(std::begin(ctrl.LabelFlags), std::end(ctrl.LabelFlags), uint8_t(0));
        ctrl.LabelFlags[bytes->GetStreamLabel()] = 1;
    } else
        std::fill(std::begin(ctrl.LabelFlags), std::end(ctrl.LabelFlags), uint8_t(1));
    return m_Unit->AttachArxConfigCommand(m_DeviceInstance, m_Channel, m_Parameters, enable, ctrl.LabelFlags);
}

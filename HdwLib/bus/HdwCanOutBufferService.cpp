#include <HdwLib/bus/HdwCanOutBufferService.h>
#include <HdwLib/bus/internal/ServiceParameters.h>

// ---- CMessageBuffer --------------------------------------------------------

CKVX_HdwCanOutBufferService::CMessageBuffer::CMessageBuffer(const CMessageBuffer& other)
    : CKVX_List<CKVX_HdwCanMessage*>()
{
    for (const CKVX_HdwCanMessage* m : other)
        *this += new CKVX_HdwCanMessage(*m);
}

CKVX_HdwCanOutBufferService::CMessageBuffer& CKVX_HdwCanOutBufferService::CMessageBuffer::operator=(
    const CMessageBuffer& other)
{
    if (this != &other) {
        CMessageBuffer copy(other);
        *this = std::move(copy);
    }
    return *this;
}

CKVX_HdwCanOutBufferService::CMessageBuffer& CKVX_HdwCanOutBufferService::CMessageBuffer::operator=(
    CMessageBuffer&& other) noexcept
{
    if (this != &other) {
        DeleteAll();
        CKVX_List<CKVX_HdwCanMessage*>::operator=(std::move(other));
    }
    return *this;
}

CKVX_HdwCanOutBufferService::CMessageBuffer::~CMessageBuffer()
{
    DeleteAll();
}

void CKVX_HdwCanOutBufferService::CMessageBuffer::DeleteAll()
{
    for (CKVX_HdwCanMessage* m : *this)
        delete m;
    CKVX_List<CKVX_HdwCanMessage*>::DeleteAll();
}

// ---- CKVX_HdwCanOutBufferService ------------------------------------------

CKVX_HdwCanOutBufferService::CParameters::~CParameters() = default;

CKVX_HdwCanOutBufferService::CKVX_HdwCanOutBufferService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_CAN_OUT_BUFFER;
}

CKVX_HdwCanOutBufferService::~CKVX_HdwCanOutBufferService() = default;

unsigned CKVX_HdwCanOutBufferService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    MessagesB.DeleteAll();
    TxStatus = 0;
    m_Unplaced = 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwCanOutBufferService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    Messages.DeleteAll();
    MessagesB.DeleteAll();
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwCanOutBufferService::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(*this, params, [this](CParameters& p) {
        p.BufferSize = BufferSize;
        p.IdWordA = IdWordA;
        p.IdWordB = IdWordB;
    });
}

unsigned CKVX_HdwCanOutBufferService::SetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersIn(*this, params, [this](const CParameters& p) {
        BufferSize = p.BufferSize;
        IdWordA = p.IdWordA;
        IdWordB = p.IdWordB;
    });
}

unsigned CKVX_HdwCanOutBufferService::GetFaultStatus(CKVX_HdwCanPort::CFaultStatus* status)
{
    auto* port = dynamic_cast<CKVX_HdwCanPort*>(GetPort());
    return port ? port->GetFaultStatus(status) : HDW_ERR_WRONG_STATE;
}

unsigned CKVX_HdwCanOutBufferService::ResetWriteBuffer()
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwCanOutBufferService::Write(CKVX_HdwCanMessage*, unsigned int, unsigned char)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwCanOutBufferService::GetMessagesToBeWritten(unsigned int&)
{
    return HDW_ERR_NOT_SUPPORTED;
}

unsigned CKVX_HdwCanOutBufferService::GetTxStatus(unsigned int& status)
{
    CKVX_HdwServiceLock lock(*this);
    status = TxStatus;
    return 0;
}

uint64_t CKVX_HdwCanOutBufferService::GetUnplacedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Unplaced;
}

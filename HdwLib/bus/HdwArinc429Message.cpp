#include <HdwLib/bus/HdwArinc429Message.h>

#include <bit>

CKVX_HdwArinc429Message::~CKVX_HdwArinc429Message() = default;

void CKVX_HdwArinc429Message::SetParity(unsigned char even)
{
    // flag is 1 when bits 0-30 hold an even number of ones.
    const uint8_t flag = (std::popcount(GetToUint32() & 0x7FFFFFFFu) & 1) ? 0 : 1;
    Parity = even ? static_cast<uint8_t>(flag ^ 1) : flag;
}

CKVX_Buffer& operator<<(CKVX_Buffer& buffer, const CKVX_HdwArinc429Message& message)
{
    buffer << message.Label << message.Sdi << message.Ssm << message.Data;
    return buffer;
}

CKVX_Buffer& operator>>(CKVX_Buffer& buffer, CKVX_HdwArinc429Message& message)
{
    buffer >> message.Label >> message.Sdi >> message.Ssm >> message.Data;
    return buffer;
}

CKVX_HdwArinc429MessageList::~CKVX_HdwArinc429MessageList() = default;

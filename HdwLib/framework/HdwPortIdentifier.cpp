#include <HdwLib/framework/HdwManager.h>

#include <vector>

struct CKVX_HdwManager::CPortIdentifier::Fields {
    unsigned portType = 0;
    unsigned absNum = 0;
    CKVX_String texts[5]; // manufacturer, full name, revision, serial number, internal channel
};

namespace {
const CKVX_String kSeparator("@");

unsigned Crc16Of(const CKVX_Crc& crc, const CKVX_String& text)
{
    std::vector<uint8_t> bytes(text.c_str(), text.c_str() + text.GetLength());
    unsigned short value = 0;
    crc.Compute(bytes.data(), static_cast<unsigned>(bytes.size()), value);
    return value;
}
} // namespace

CKVX_HdwManager::CPortIdentifier::CPortIdentifier()
{
    Clear();
}

CKVX_HdwManager::CPortIdentifier::~CPortIdentifier() = default;

void CKVX_HdwManager::CPortIdentifier::Clear()
{
    m_Key = "";
    m_Manufacturer = "";
    m_FullName = "";
    m_SerialNumber = "";
    m_Revision = "";
    m_IntChannel = "";
    m_AbsNum = 0;
}

unsigned CKVX_HdwManager::CPortIdentifier::CalcCrc(const CKVX_String& text)
{
    return Crc16Of(m_Crc, text);
}

void CKVX_HdwManager::CPortIdentifier::AppendChecksum(CKVX_String& key)
{
    key.AppendFormat("@%04X", CalcCrc(key) & 0xFFFF);
}

unsigned CKVX_HdwManager::CPortIdentifier::Set(unsigned portType, unsigned absNum, CKVX_String manufacturer,
    CKVX_String fullName, CKVX_String revision, CKVX_String serialNumber, unsigned intChannel)
{
    if (portType == 0)
        return HDW_ERR_ARGUMENT;
    for (const CKVX_String* t : {&manufacturer, &fullName, &revision, &serialNumber})
        if (t->FindFromBegin(kSeparator) >= 0)
            return HDW_ERR_ARGUMENT;
    CKVX_String key;
    key.Format("%d@%d@", static_cast<int>(portType), static_cast<int>(absNum));
    key += manufacturer;
    key += "@";
    key += fullName;
    key += "@";
    key += revision;
    key += "@";
    key += serialNumber;
    key.AppendFormat("@%08d", static_cast<int>(intChannel));
    AppendChecksum(key);
    return Set(key);
}

unsigned CKVX_HdwManager::CPortIdentifier::Set(unsigned absNum, CKVX_HdwManager::CPortDescriptor& d)
{
    unsigned channel = 0;
    if (!d.IntChannel.ToUnsigned(channel, 10) || channel > 0x7FFFFFFFu)
        return HDW_ERR_ARGUMENT;
    return Set(d.PortType, absNum, d.Manufacturer, d.FullName, d.Revision, d.SerialNumber, channel);
}

bool CKVX_HdwManager::CPortIdentifier::Parse(const CKVX_String& key, const CKVX_Crc& crc, Fields& out)
{
    CKVX_String rest = key;
    CKVX_String parts[7];
    for (CKVX_String& part : parts) {
        const int at = rest.FindFromBegin(kSeparator);
        if (at < 0)
            return false;
        part = rest.Left(static_cast<unsigned>(at));
        rest = rest.Mid(static_cast<unsigned>(at) + 1);
    }
    // What follows the seventh "@" is the checksum: exactly four upper-case hex digits.
    if (rest.GetLength() != 4)
        return false;
    if (!parts[0].ToUnsigned(out.portType, 10) || !parts[1].ToUnsigned(out.absNum, 10))
        return false;
    CKVX_String expected;
    expected.Format("%04X", Crc16Of(crc, key.Left(key.GetLength() - 5)));
    if (!(expected == rest))
        return false;
    for (unsigned i = 0; i < 5; ++i)
        out.texts[i] = parts[i + 2];
    return true;
}

unsigned CKVX_HdwManager::CPortIdentifier::Set(const CKVX_String& key)
{
    Fields f;
    if (!Parse(key, m_Crc, f))
        return HDW_ERR_ARGUMENT;
    m_Key = key;
    m_PortType = f.portType;
    m_AbsNum = f.absNum;
    m_Manufacturer = f.texts[0];
    m_FullName = f.texts[1];
    m_Revision = f.texts[2];
    m_SerialNumber = f.texts[3];
    m_IntChannel = f.texts[4];
    return 0;
}

unsigned CKVX_HdwManager::CPortIdentifier::Get(unsigned* portType, CKVX_HdwManager::CPortDescriptor* descriptor)
{
    Fields f;
    if (!Parse(m_Key, m_Crc, f))
        return HDW_ERR_ARGUMENT;
    if (portType)
        *portType = f.portType;
    if (descriptor) {
        descriptor->PortType = f.portType;
        descriptor->AbsNum = f.absNum;
        descriptor->Manufacturer = f.texts[0];
        descriptor->FullName = f.texts[1];
        descriptor->Revision = f.texts[2];
        descriptor->SerialNumber = f.texts[3];
        descriptor->IntChannel = f.texts[4];
    }
    return 0;
}

unsigned CKVX_HdwManager::CPortIdentifier::Get(unsigned* portType, unsigned* absNum, CKVX_String* manufacturer,
    CKVX_String* fullName, CKVX_String* revision, CKVX_String* serialNumber, unsigned* intChannel)
{
    Fields f;
    if (!Parse(m_Key, m_Crc, f))
        return HDW_ERR_ARGUMENT;
    unsigned channel = 0;
    if (intChannel && !f.texts[4].ToUnsigned(channel, 10))
        return HDW_ERR_ARGUMENT;
    if (portType)
        *portType = f.portType;
    if (absNum)
        *absNum = f.absNum;
    if (manufacturer)
        *manufacturer = f.texts[0];
    if (fullName)
        *fullName = f.texts[1];
    if (revision)
        *revision = f.texts[2];
    if (serialNumber)
        *serialNumber = f.texts[3];
    if (intChannel)
        *intChannel = channel;
    return 0;
}

bool CKVX_HdwManager::CPortIdentifier::IsValid(const CKVX_String& key)
{
    Fields f;
    return Parse(key, CKVX_Crc(), f);
}

bool CKVX_HdwManager::CPortIdentifier::CheckMatch(CPortIdentifier& other)
{
    return CheckMatch(other.m_Key);
}

bool CKVX_HdwManager::CPortIdentifier::CheckMatch(const CKVX_String& key)
{
    Fields mine, theirs;
    if (!Parse(m_Key, m_Crc, mine) || !Parse(key, m_Crc, theirs))
        return false;
    if (mine.portType != theirs.portType)
        return false;
    for (unsigned i = 0; i < 5; ++i)
        if (!(mine.texts[i] == theirs.texts[i]))
            return false;
    return true;
}

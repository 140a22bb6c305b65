#pragma once
// CKVX_HdwManager::CPortIdentifier: the identity of one port of one unit as a
// single text key, which an application stores to find the same physical
// channel again on a later run, whatever order the units come in:
//
//     type@absnum@manufacturer@full name@revision@serial@channel(8 digits)@CRC(4 hex)
//
// e.g. "2@0@Kalvionix Engineering@Halden@1.0@SN1234@00000003@9F1C". The CRC is
// the default CKVX_Crc over everything before the last "@". Matching ignores
// the absolute number, which may change between runs.

// Completes the nested class that HdwManager.h declares; HdwManager.h includes
// this header at its end, so either may be included first.
#include <HdwLib/framework/HdwManager.h>

#include <HdwLib/core/KvxCrc.h>
#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>

class HDWLIB_EXPORT CKVX_HdwManager::CPortIdentifier : public CKVX_Object {
public:
    CPortIdentifier();
    CPortIdentifier(const CPortIdentifier&) = default;
    CPortIdentifier& operator=(const CPortIdentifier&) = default;
    ~CPortIdentifier() override;

    void Clear();

    // Builds a key from its fields and loads it. 2 when portType is 0 or a text contains "@".
    unsigned Set(unsigned portType, unsigned absNum, CKVX_String manufacturer, CKVX_String fullName,
        CKVX_String revision, CKVX_String serialNumber, unsigned intChannel);
    // Builds a key from a manager port descriptor (its port type and texts) and `absNum`.
    unsigned Set(unsigned absNum, CKVX_HdwManager::CPortDescriptor& descriptor);
    // Parses and checks a key; on success stores it and its fields and returns
    // 0. A failed parse (non-zero) leaves the previous contents.
    unsigned Set(const CKVX_String& key);

    // Parse the stored key into the caller's variables (null pointers are skipped).
    unsigned Get(unsigned* portType, CKVX_HdwManager::CPortDescriptor* descriptor);
    unsigned Get(unsigned* portType, unsigned* absNum, CKVX_String* manufacturer, CKVX_String* fullName,
        CKVX_String* revision, CKVX_String* serialNumber, unsigned* intChannel);

    // True when the key parses and its checksum matches.
    static bool IsValid(const CKVX_String& key);
    // True when both keys name the same port: equal port type, manufacturer,
    // full name, revision, serial number and internal channel.
    bool CheckMatch(CPortIdentifier& other);
    bool CheckMatch(const CKVX_String& key);

    const CKVX_String& GetKeyString() const { return m_Key; }
    unsigned GetPortType() const { return m_PortType; }
    unsigned GetAbsNum() const { return m_AbsNum; }
    const CKVX_String& GetManufacturer() const { return m_Manufacturer; }
    const CKVX_String& GetFullName() const { return m_FullName; }
    const CKVX_String& GetSN() const { return m_SerialNumber; }
    const CKVX_String& GetRevision() const { return m_Revision; }
    const CKVX_String& GetIntChannel() const { return m_IntChannel; }

protected:
    unsigned CalcCrc(const CKVX_String& text);
    void AppendChecksum(CKVX_String& key);

private:
    struct Fields;
    static bool Parse(const CKVX_String& key, const CKVX_Crc& crc, Fields& out);

    CKVX_String m_Key;
    unsigned m_PortType = 0;
    unsigned m_AbsNum = 0;
    CKVX_String m_Manufacturer;
    CKVX_String m_FullName;
    CKVX_String m_SerialNumber;
    CKVX_String m_Revision;
    CKVX_String m_IntChannel;
    CKVX_Crc m_Crc;
};

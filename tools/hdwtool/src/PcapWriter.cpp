#include "PcapWriter.h"

#include <cerrno>
#include <cstring>

namespace hdwtool {

namespace {

void Put16(std::vector<uint8_t>& b, uint16_t v)
{
    b.push_back(uint8_t(v));
    b.push_back(uint8_t(v >> 8));
}

void Put32(std::vector<uint8_t>& b, uint32_t v)
{
    Put16(b, uint16_t(v));
    Put16(b, uint16_t(v >> 16));
}

void PadTo4(std::vector<uint8_t>& b)
{
    while (b.size() % 4)
        b.push_back(0);
}

void PutBigEndian32(uint8_t* p, uint32_t v)
{
    p[0] = uint8_t(v >> 24);
    p[1] = uint8_t(v >> 16);
    p[2] = uint8_t(v >> 8);
    p[3] = uint8_t(v);
}

} // namespace

std::array<uint8_t, 16> SocketCanRecord(const CKVX_HdwCanMessage& frame)
{
    std::array<uint8_t, 16> r{};
    uint32_t id = frame.Identifier & (frame.Extended ? 0x1FFFFFFFu : 0x7FFu);
    if (frame.Extended)
        id |= 0x80000000u;
    if (frame.Rtr)
        id |= 0x40000000u;
    PutBigEndian32(r.data(), id);
    const unsigned len = frame.Dlc > 8 ? 8 : frame.Dlc;
    r[4] = uint8_t(len);
    if (!frame.Rtr)
        std::memcpy(r.data() + 8, frame.Data, len);
    return r;
}

std::array<uint8_t, 8> Arinc429Record(const CKVX_HdwArinc429Message& word, const Arinc429RecordInfo& info)
{
    std::array<uint8_t, 8> r{};
    r[0] = 1;
    r[1] = uint8_t((info.Transmitted ? 0x01 : 0) | (info.WireOrder ? 0x02 : 0) | (info.ParityError ? 0x04 : 0) |
        (info.EvenParity ? 0x08 : 0));
    r[2] = info.Channel;
    CKVX_HdwArinc429Message w = word;
    PutBigEndian32(r.data() + 4, w.GetToUint32());
    return r;
}

PcapWriter::~PcapWriter()
{
    if (m_File)
        std::fclose(m_File);
}

bool PcapWriter::Open(const std::string& path, std::string& error)
{
    m_File = std::fopen(path.c_str(), "wb");
    if (!m_File) {
        error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    m_Path = path;
    std::vector<uint8_t> shb;
    Put32(shb, 0x1A2B3C4D); // byte-order magic
    Put16(shb, 1); // version 1.0
    Put16(shb, 0);
    Put32(shb, 0xFFFFFFFF); // section length unknown
    Put32(shb, 0xFFFFFFFF);
    Block(0x0A0D0D0A, shb);
    return true;
}

uint32_t PcapWriter::AddInterface(uint16_t linkType, const std::string& name)
{
    std::vector<uint8_t> idb;
    Put16(idb, linkType);
    Put16(idb, 0);
    Put32(idb, 0); // no snapshot limit
    Put16(idb, 2); // if_name
    Put16(idb, uint16_t(name.size()));
    idb.insert(idb.end(), name.begin(), name.end());
    PadTo4(idb);
    Put16(idb, 9); // if_tsresol: microseconds
    Put16(idb, 1);
    idb.push_back(6);
    PadTo4(idb);
    Put32(idb, 0); // opt_endofopt
    Block(1, idb);
    return m_Interfaces++;
}

void PcapWriter::Write(uint32_t interfaceIndex, uint64_t wallUs, const uint8_t* data, size_t size)
{
    std::vector<uint8_t> epb;
    Put32(epb, interfaceIndex);
    Put32(epb, uint32_t(wallUs >> 32));
    Put32(epb, uint32_t(wallUs));
    Put32(epb, uint32_t(size));
    Put32(epb, uint32_t(size));
    epb.insert(epb.end(), data, data + size);
    PadTo4(epb);
    Block(6, epb);
}

bool PcapWriter::Flush(std::string& error)
{
    if (m_File && (std::fflush(m_File) != 0 || std::ferror(m_File))) {
        error = "writing " + m_Path + " failed: " + std::strerror(errno);
        return false;
    }
    return true;
}

void PcapWriter::Block(uint32_t type, const std::vector<uint8_t>& body)
{
    std::vector<uint8_t> b;
    const uint32_t total = uint32_t(body.size() + 12);
    Put32(b, type);
    Put32(b, total);
    b.insert(b.end(), body.begin(), body.end());
    Put32(b, total);
    std::fwrite(b.data(), 1, b.size(), m_File);
}

} // namespace hdwtool

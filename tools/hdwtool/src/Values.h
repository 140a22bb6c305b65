#pragma once
// Parsing of the values people type: numbers with their prefixes, ARINC 429
// words (raw hex or fields), CAN frames in the cansend syntax, UART bytes,
// label filters and bus rates. Nothing here touches hardware; every parser
// answers false and a one-line reason for text it cannot take.

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hdwtool {

// An unsigned number: 0x.. hex, 0o.. octal, 0b.. binary, 0d.. or plain
// decimal. `plainRadix` is used for a number without a prefix (8 for ARINC
// 429 labels, which are octal by convention).
bool ParseNumber(const std::string& text, uint64_t& value, unsigned plainRadix = 10);

// "key=value" pairs separated by commas; keys in lower case.
bool SplitFields(const std::string& text, std::vector<std::pair<std::string, std::string>>& fields, std::string& error);

// ARINC 429 word: 32-bit hex ("E0048D83", "0x60000083") or fields
// "label=203,sdi=1,data=0x1234,ssm=3[,parity=odd|even|0|1]". The label is
// octal unless prefixed; without a parity field the word gets odd parity.
bool ParseArinc429(const std::string& text, CKVX_HdwArinc429Message& word, std::string& error);

// CAN frame in the cansend syntax: "123#DEADBEEF" (3 hex digits: standard
// identifier), "1F334455#R" (8 digits: extended; R: remote request, an
// optional length digit after it), "123#" (no data), data bytes may be
// separated by dots ("123#DE.AD.BE.EF").
bool ParseCanFrame(const std::string& text, CKVX_HdwCanMessage& frame, std::string& error);
// The frame back in the cansend syntax, data without separators.
std::string FormatCanFrame(const CKVX_HdwCanMessage& frame);

// UART bytes: "hex:48656C6C6F" (dots, colons or blanks between bytes
// allowed) or text with the escapes \n \r \t \\ \xNN ("text:" forces text).
bool ParseUartBytes(const std::string& text, std::vector<uint8_t>& bytes, std::string& error);

// An ARINC 429 label filter "LABEL[:SDI[:SSM]]" (label octal unless
// prefixed). Absent SDI or SSM means any.
struct LabelAccept {
    uint8_t Label = 0;
    int Sdi = -1;
    int Ssm = -1;
    // The 16-bit acceptance bits of this entry (bit SDI + 4 x SSM).
    uint16_t Mask() const;
};
bool ParseLabelAccept(const std::string& text, LabelAccept& accept, std::string& error);

// A decimal number (strtod's syntax) that is the whole text: nothing after it,
// not even a NUL inside the string.
bool ParseReal(const std::string& text, double& value);
// A rate in bit/s: "12500", "100k", "12.5k", "1M"; "low" and "high" for the
// two ARINC 429 speeds.
bool ParseBitRate(const std::string& text, uint32_t& rate, std::string& error);
// A CAN sample point as a fraction ("0.875") or percentage ("87.5%").
bool ParseSamplePoint(const std::string& text, double& point, std::string& error);
// A duration in seconds ("5", "0.5", "250ms").
bool ParseSeconds(const std::string& text, double& seconds, std::string& error);

} // namespace hdwtool

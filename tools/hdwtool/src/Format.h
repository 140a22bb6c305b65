#pragma once
// Output lines: one row per word, frame, byte chunk or port, in fixed
// columns separated by blanks (the last column may hold blanks and runs to
// the end of the line) or as CSV. The column sets:
//
//   ARINC 429: TIME PORT LABEL SDI DATA SSM P WORD
//              label in octal, data (19 bits) in hex, P the parity bit with
//              "!" after it when the receiver's parity check fails ("1!"),
//              WORD the raw 32-bit word
//   CAN:       TIME PORT ID DLC DATA RTR FRAME
//              ID 3 hex digits (standard) or 8 (extended), DATA dotted hex
//              bytes or "-", RTR "R" or "-", FRAME in the cansend syntax
//   UART:      TIME PORT COUNT HEX TEXT
//   1553:      TIME PORT BUS DIR RT SA WC STATUS ERRORS DATA (Mil1553Text.h)
//   list:      NUM TYPE PORT MODEL SERIAL CHANNEL KEY

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hdwtool {

enum class OutputFormat { Text, Csv };

using Fields = std::vector<std::string>;

struct Columns {
    Fields Header;
    // Text widths: positive pads on the right (left aligned), negative pads
    // on the left (right aligned); the last column is never padded.
    std::vector<int> Widths;
};

const Columns& Arinc429Columns();
const Columns& CanColumns();
const Columns& UartColumns();
const Columns& Mil1553Columns();
const Columns& ListColumns();

std::string RenderRow(const Fields& fields, const Columns& columns, OutputFormat format);

// Microseconds as seconds with six decimals ("12.345678").
std::string FormatTime(uint64_t microseconds);
// Label in octal, three digits ("203").
std::string FormatLabel(uint8_t label);

// How a unit holds the label in the raw word's low byte (bits 0-7):
//   Reversed  bit-reversed from the wire, so the byte reads as the label's
//             number (bit 7 its most significant bit: 0x83 is label 203);
//             the units this tool drives and hdwsim store it so
//   Wire      in wire order: bit 0 is the first bit on the bus, the label's
//             most significant bit (0xC1 is label 203)
enum class LabelOrder { Reversed, Wire };
// "reversed" or "wire"; false with a reason otherwise.
bool ParseLabelOrder(const std::string& text, LabelOrder& order, std::string& error);
// The label number of a raw low byte (or the raw byte of a label number:
// the mapping is its own inverse).
uint8_t LabelNumber(uint8_t rawLabel, LabelOrder order);

// True when the word's 32 bits hold an odd number of ones (`even`: an even number).
bool Arinc429ParityOk(const CKVX_HdwArinc429Message& word, bool even = false);
Fields Arinc429Fields(uint64_t timeUs, const std::string& port, const CKVX_HdwArinc429Message& word,
    bool parityError = false, LabelOrder order = LabelOrder::Reversed);
Fields CanFields(uint64_t timeUs, const std::string& port, const CKVX_HdwCanMessage& frame);
Fields UartFields(uint64_t timeUs, const std::string& port, const std::vector<uint8_t>& bytes);
// Bytes as C-escaped text in double quotes.
std::string QuoteText(const std::vector<uint8_t>& bytes);

} // namespace hdwtool

#pragma once
// MIL-STD-1553 on the command line: one line per transfer, and the words
// that describe transfers, a terminal's data and minor frames.
//
// Transfer line: TIME PORT BUS DIR RT SA WC STATUS ERRORS DATA
//   BUS    A or B (the bus of the last attempt)
//   DIR    BC->RT, RT->BC, RT->RT or MODE
//   RT     terminal address; RT->RT "7>5" (transmitter > receiver)
//   SA     subaddress, the mode code for MODE; RT->RT "3>1"
//   WC     data words on the bus (0..32)
//   STATUS status word in hex, RT->RT both ("3800.2800"), "-" when none came
//   ERRORS short names joined by commas, "-" for none: noresp, wc (bad word
//          count), parity (parity or Manchester), addr (status word from
//          another terminal), msgerr, busy, srq (service request)
//   DATA   the data words in hex joined by dots, "-" for none; last, as it
//          is the one column of varying width
//
// Transfer words (blanks or ':' between them): a direction starts a
// transfer, the fields after it describe it:
//   rx rt=TA sa=SA WORDS          BC->RT; WORDS hex, comma separated
//   tx rt=TA sa=SA wc=N           RT->BC
//   rtrt rt=TA sa=SA txrt=TA txsa=SA wc=N   RT->RT
//   mode rt=TA mc=N [WORD]        mode code (data word for 17, 20, 21)
//   any of them: bus=a|b, retry=same|other, gap=US
// Terminal words: TA [SA=WORDS]... [busy] [srq]

#include "Format.h"

#include <HdwLib/HdwLib.h>

#include <string>
#include <vector>

namespace hdwtool {

using Mil1553Message = CKVX_HdwMilStd1553Message;

Fields Mil1553Fields(uint64_t timeUs, const std::string& port, const Mil1553Message& m);
// The error flags' short names, "-" for none.
std::string Mil1553Errors(uint16_t flags);
// True when the transfer did not complete (no response, bad word count,
// parity, wrong address).
bool Mil1553Failed(const Mil1553Message& m);

bool ParseMil1553Transfers(
    const std::vector<std::string>& words, std::vector<Mil1553Message>& transfers, std::string& error);
// The transfers of one text ("rx:rt=5:sa=1:1234,5678").
bool ParseMil1553Transfers(const std::string& text, std::vector<Mil1553Message>& transfers, std::string& error);
bool ParseMil1553Terminal(
    const std::vector<std::string>& words, CKVX_HdwMilStd1553RemoteTerminal& terminal, std::string& error);
// "PERIOD=I,J,..." (period as for --duration, "20ms"; I, J transfer numbers
// from 0) against `transfers` transfers.
bool ParseMinorFrame(
    const std::string& text, unsigned transfers, CKVX_HdwMilStd1553MinorFrame& minor, std::string& error);

} // namespace hdwtool

#pragma once
// A data generator label as people type it: comma-separated fields in the
// style of the ARINC 429 word fields, one pattern among them:
//   label=203,rate=20,sdi=1,ssm=3,data=0x1234              constant (the default)
//   label=204,rate=10,counter=0:1000[,step=5]               counter, wraps
//   label=205,rate=50,bnr=sine,range=512,res=0.25,low=-100,high=300,period=5
//   label=206,rate=5,bcd=ramp,res=0.1,digits=4,low=0,high=359.9,period=60
//   label=207,rate=5,discrete=0x40000,toggle=0x3,period=0.5
//   label=210,rate=25,random=0x100:0x1FF[,seed=9]
// The label is octal unless prefixed (as for words); numbers of the data
// field take 0x, 0o, 0b, 0d prefixes; rate, range, res, low, high and period
// are decimal (fractions allowed). Waves: sine, triangle, ramp.

#include <HdwLib/HdwLib.h>

#include <string>

namespace hdwtool {

// False with a one-line reason for text it cannot take, and for a definition
// the generator would refuse (rate 0, a BNR range that is not a power of two
// of its resolution, an SDI above 3 ...).
bool ParseGeneratorLabel(const std::string& text, CKVX_HdwDataGeneratorService::CLabelDef& def, std::string& error);

} // namespace hdwtool

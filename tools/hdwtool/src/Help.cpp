// The help texts. Every example runs as printed against the emulator started
// in another terminal with:  hdwsim --unit halden --udp 55003
#include "Commands.h"

namespace hdwtool {

namespace {

const char kMain[] =
    "usage: hdwtool SUBCOMMAND [options] [arguments]\n"
    "\n"
    "List, watch and drive the ports of interface units (ARINC 429, CAN, UART).\n"
    "\n"
    "subcommands:\n"
    "  list      one row per port of the units: number, type, model, serial, channel, key\n"
    "  monitor   print the traffic of receive ports as it arrives\n"
    "  send      put ARINC 429 words, CAN frames or UART bytes on a bus\n"
    "  demo      run an emulated unit in this process and show its looped-back traffic\n"
    "\n"
    "  hdwtool SUBCOMMAND --help   shows the options of one subcommand.\n"
    "\n"
    "Units are reached through explicit links (--link CODE:LINK, repeatable), or\n"
    "found by a scan when --scan is given. CODE is the driver's device code or\n"
    "name: 3 halden, 4 bexley, 6 arvane, 8 haldensmall, 10 pellor, 11 quillan,\n"
    "12 mirrow (the units), 100 pcuart (PC serial port), 101 udpuart (serial\n"
    "byte stream over UDP). LINK is a serial device (/dev/ttyUSB0,\n"
    "/dev/pts/7) or udp:HOST:PORT. Without --link, the environment variable\n"
    "HDWTOOL_LINK (links separated by commas) is used.\n"
    "\n"
    "Ports are named TYPE:N, N being the port's absolute number among the ports\n"
    "of that type: a429tx:0, a429rx:1, can:0, uart:1; or by the key that list\n"
    "prints, which names the same channel of the same unit on every run.\n"
    "\n"
    "One process owns a unit's link: to send and watch one unit at once, use\n"
    "monitor --send.\n"
    "\n"
    "exit status: 0 done, 1 failed (no unit, port refused, data lost), 2 bad command line\n"
    "\n"
    "examples (emulator in another terminal: hdwsim --unit halden --udp 55003):\n"
    "  hdwtool demo\n"
    "  hdwtool list --link 3:udp:127.0.0.1:55003\n"
    "  hdwtool monitor --link 3:udp:127.0.0.1:55003 a429rx:0 --count 2 --send a429tx:0=label=203,data=0x1234 --repeat 2\n"
    "  hdwtool send --link 3:udp:127.0.0.1:55003 can:0 123#DEADBEEF 1F334455#R\n";

const char kList[] =
    "usage: hdwtool list [--link CODE:LINK]... [--scan] [--format text|csv] [--no-header]\n"
    "\n"
    "Enumerates the units and prints one row per port, in fixed columns separated\n"
    "by blanks (the key, last, runs to the end of the line) or as CSV:\n"
    "  NUM TYPE PORT MODEL SERIAL CHANNEL KEY\n"
    "NUM is the absolute number among the ports of that TYPE, PORT the name the\n"
    "other subcommands take, KEY the port-identifier key (they take it too).\n"
    "The header line is printed on a terminal and in CSV.\n"
    "\n"
    "options:\n"
    "  -l, --link CODE:LINK  a unit's link (repeatable): 3:/dev/ttyUSB0, 3:udp:127.0.0.1:55003\n"
    "      --scan            also scan for units (USB bridges)\n"
    "  -f, --format FORMAT   text (default) or csv\n"
    "      --no-header       no header line\n"
    "  -h, --help            this help\n"
    "\n"
    "examples (emulator in another terminal: hdwsim --unit halden --udp 55003):\n"
    "  hdwtool list --link 3:udp:127.0.0.1:55003\n"
    "  hdwtool list --link 3:udp:127.0.0.1:55003 --format csv\n";

const char kMonitor[] =
    "usage: hdwtool monitor [options] PORT...\n"
    "\n"
    "Opens the ports and prints what they receive until Ctrl-C, --count or\n"
    "--duration. a429tx ports show the words their transmitter put on the bus.\n"
    "One line per item, fixed columns separated by blanks:\n"
    "  ARINC 429  TIME PORT LABEL SDI DATA SSM P WORD   (label octal, data 19-bit hex;\n"
    "             P the parity bit, followed by ! when a received word fails the\n"
    "             receiver's parity check (--parity): 1! or 0!)\n"
    "  CAN        TIME PORT ID DLC DATA RTR FRAME       (ID 3 hex digits standard,\n"
    "             8 extended; DATA dotted bytes; FRAME in the cansend syntax)\n"
    "  UART       TIME PORT COUNT HEX TEXT\n"
    "TIME is the unit's time stamp in seconds, counting on past the unit clock's\n"
    "32-bit wrap (UART: seconds since the start).\n"
    "On a terminal a status line with per-port counts and rates is kept at the\n"
    "bottom; piped, the output is the plain lines only.\n"
    "\n"
    "options:\n"
    "  -l, --link CODE:LINK    a unit's link (repeatable); --scan to search\n"
    "  -n, --count N           stop after N items (exit 1 if --duration ends first)\n"
    "  -t, --duration S        stop after S seconds (5, 0.5, 250ms)\n"
    "      --rate RATE         ARINC 429 bit rate: low (12500, default) or high (100000);\n"
    "                          UART: the baud rate\n"
    "      --parity P          ARINC 429: odd (default), even, none; UART: none, odd,\n"
    "                          even, mark, space\n"
    "      --bitrate RATE      CAN bit rate (default 1M): 125k, 250k, 500k, 1M\n"
    "      --sample-point SP   CAN sample point (default 0.5): 0.875 or 87.5%\n"
    "  -a, --accept L[:SDI[:SSM]]  receive only this ARINC 429 label (octal), SDI,\n"
    "                          SSM (repeatable; the default is every word)\n"
    "  -s, --send PORT=VALUE   send VALUE on PORT once the ports are open (repeatable;\n"
    "                          values as for hdwtool send)\n"
    "      --repeat N          send the --send values N times (default 1)\n"
    "      --interval MS       milliseconds between repetitions (default 0)\n"
    "  -f, --format FORMAT     text (default) or csv\n"
    "      --no-status         no status line on a terminal\n"
    "      --reconnect         keep the ports open when a unit goes away (unplugged,\n"
    "                          restarted) and carry on when it is back; prints\n"
    "                          \"unit lost LINK outages=N lost-items=N failed-commands=N\"\n"
    "                          and \"unit back LINK returns=N away-ms=N\", and at the end\n"
    "                          \"unit outages N, back N\" to stderr\n"
    "  -h, --help              this help\n"
    "\n"
    "examples (emulator in another terminal: hdwsim --unit halden --udp 55003):\n"
    "  hdwtool monitor --link 3:udp:127.0.0.1:55003 a429rx:0 --count 3 --send a429tx:0=label=203,sdi=1,data=0x1234,ssm=3 --repeat 3 --interval 10\n"
    "  hdwtool monitor --link 3:udp:127.0.0.1:55003 can:1 --bitrate 500k --sample-point 87.5% --count 2 --send can:0=123#DEADBEEF --send can:0=1F334455#R\n"
    "  hdwtool monitor --link 3:udp:127.0.0.1:55003 a429rx:1 --rate high --accept 310:2 --count 1 --send a429tx:1=label=310,sdi=1 --send a429tx:1=label=310,sdi=2\n"
    "  hdwtool monitor --link 3:udp:127.0.0.1:55003 uart:1 --rate 115200 --count 1 --send uart:0=hello\n";

const char kSend[] =
    "usage: hdwtool send [options] PORT VALUE...\n"
    "\n"
    "Sends the values in order on one transmit port and waits until the unit has\n"
    "put them on the bus. Values:\n"
    "  ARINC 429 (a429tx:N)  a 32-bit hex word (60000083, 0xE0048D83), or fields\n"
    "                        label=203,sdi=1,data=0x1234,ssm=3[,parity=odd|even|0|1]:\n"
    "                        label octal unless prefixed (0x, 0d), data up to 0x7FFFF,\n"
    "                        odd parity unless given\n"
    "  CAN (can:N)           the cansend syntax: 123#DEADBEEF (3 hex digits: standard\n"
    "                        identifier), 1F334455#11.22 (8 digits: extended),\n"
    "                        123#R or 123#R4 (remote request), 123# (no data)\n"
    "  UART (uart:N)         text with \\n \\r \\t \\xNN escapes, or hex:48656C6C6F\n"
    "\n"
    "options:\n"
    "  -l, --link CODE:LINK    a unit's link (repeatable); --scan to search\n"
    "      --repeat N          send the values N times (default 1)\n"
    "      --interval MS       milliseconds between repetitions (default 0)\n"
    "      --rate, --parity, --bitrate, --sample-point   port settings as for monitor\n"
    "  -v, --verbose           print each value as sent, in the monitor's format\n"
    "  -h, --help              this help\n"
    "\n"
    "A second process cannot watch the same unit meanwhile (one process owns a\n"
    "unit's link); use hdwtool monitor --send to send and watch together.\n"
    "\n"
    "examples (emulator in another terminal: hdwsim --unit halden --udp 55003):\n"
    "  hdwtool send --link 3:udp:127.0.0.1:55003 a429tx:0 label=203,sdi=1,data=0x1234,ssm=3 0x60000083\n"
    "  hdwtool send --link 3:udp:127.0.0.1:55003 can:0 --bitrate 500k 123#DEADBEEF 1F334455#R 123# --repeat 10 --interval 100\n"
    "  hdwtool send --link 3:udp:127.0.0.1:55003 uart:0 --rate 115200 'hello\\r\\n' hex:01.02.03\n";

const char kDemo[] =
    "usage: hdwtool demo [--duration S] [--udp] [--verbose] [--no-status]\n"
    "                    [--parity-faults N]\n"
    "\n"
    "Needs no hardware: starts an emulated Halden unit in this process (on a\n"
    "pseudo-terminal, or on a loopback UDP port with --udp), enumerates it\n"
    "through that link, lists its ports, and puts a realistic pattern on its\n"
    "buses: air-data and inertial ARINC 429 labels at their usual rates on each\n"
    "transmitter (wired to the receiver of the same number), and engine and\n"
    "vehicle CAN identifiers on can:0 and can:1 (wired to each other). It prints\n"
    "each label and identifier the first time it arrives, keeps a status line on\n"
    "a terminal, and ends with a summary per channel: sent, received, lost,\n"
    "altered, ARINC 429 words received with a parity error (PARITY) and the\n"
    "observed rate. Exit status 1 if anything was lost, altered or had a parity\n"
    "error.\n"
    "\n"
    "options:\n"
    "  -t, --duration S   seconds of traffic (default 5)\n"
    "      --udp          reach the emulated unit over UDP on 127.0.0.1\n"
    "  -v, --verbose      print every word and frame\n"
    "      --no-status    no status line on a terminal\n"
    "      --parity-faults N  the emulated unit flips the parity bit of the\n"
    "                     first N words its receivers get, to see them reported\n"
    "  -h, --help         this help\n"
    "\n"
    "examples:\n"
    "  hdwtool demo\n"
    "  hdwtool demo --duration 2 --udp\n";

} // namespace

const char* HelpText(const std::string& command)
{
    if (command.empty())
        return kMain;
    if (command == "list")
        return kList;
    if (command == "monitor")
        return kMonitor;
    if (command == "send")
        return kSend;
    if (command == "demo")
        return kDemo;
    return nullptr;
}

} // namespace hdwtool

// Runs a Windows test program under wine with real serial lines: makes
// pseudo-terminal pairs, maps each slave to a COM port of the wine prefix
// ($WINEPREFIX/dosdevices/comN -> /dev/pts/M) and plays the far end of every
// line on its master, as the test asks over one loopback TCP connection.
//
//     wine_serial_peer [--lines N] -- wine program.exe [args...]
//
// The program finds the peer through HDWLIB_SERIAL_PEER (127.0.0.1:PORT) and
// the COM names through HDWLIB_SERIAL_PORTS (comma-separated, line 0 first).
// Requests, one line each, answered by one line "OK ..." or "ERR text":
//     SETTINGS i    the slave's settings as the far end sees them: baud= bits=
//                   parity=none|odd|even|mark|space stop= crtscts= ixon= ixoff=
//                   xon= xoff= raw=
//     SEND i HEX    write the bytes to the master
//     RECV i N MS   up to N bytes from the master, waiting up to MS ms for them
//     INQUEUE i     bytes waiting on the slave (for the program to read)
//     HANGUP i      close the master: the line's far side is gone
//     RENEW i       a fresh pseudo-terminal pair behind the same COM name
// The links are removed on exit; the exit code is the program's.
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

long ReadLineSpeed(int fd);

namespace {

struct Line {
    int master = -1, slave = -1; // the slave stays open so that the line does not hang up between opens
    pid_t holder = -1; // the process whose controlling terminal the slave is
    std::string slaveName, link, comName;
};
std::vector<Line> g_Lines;

bool OpenPty(Line& line)
{
    char name[256] = {};
    if (openpty(&line.master, &line.slave, name, nullptr, nullptr) != 0)
        return false;
    termios t{};
    tcgetattr(line.slave, &t);
    cfmakeraw(&t);
    tcsetattr(line.slave, TCSANOW, &t);
    fcntl(line.master, F_SETFL, fcntl(line.master, F_GETFL) | O_NONBLOCK);
    fcntl(line.master, F_SETFD, FD_CLOEXEC);
    fcntl(line.slave, F_SETFD, FD_CLOEXEC);
    line.slaveName = name;
    // The wine server opens the device without O_NOCTTY; a terminal that is
    // nobody's controlling terminal would become its, and closing the master
    // would then hang it up. A holder process takes the terminal first, and
    // the line is handed out only once it has.
    int ready[2];
    if (pipe(ready) != 0)
        return false;
    line.holder = fork();
    if (line.holder == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGHUP, SIG_IGN);
        for (int fd = 3; fd < 1024; ++fd) // other lines' masters: a hang-up must not find them held
            if (fd != line.slave && fd != ready[1])
                close(fd);
        const char ok = (setsid() >= 0 && ioctl(line.slave, TIOCSCTTY, 0) == 0) ? 1 : 0;
        if (write(ready[1], &ok, 1) == 1)
            for (;;)
                pause();
        _exit(1);
    }
    close(ready[1]);
    char ok = 0;
    const bool held = line.holder > 0 && read(ready[0], &ok, 1) == 1 && ok == 1;
    close(ready[0]);
    return held;
}

void ClosePty(Line& line)
{
    for (int fd : {line.master, line.slave})
        if (fd >= 0)
            close(fd);
    line.master = line.slave = -1;
    if (line.holder > 0) {
        kill(line.holder, SIGKILL);
        waitpid(line.holder, nullptr, 0);
    }
    line.holder = -1;
}

// The first free comN from 7 on: symlink() fails on an existing entry, so two
// peers on one prefix never share a name.
bool LinkCom(Line& line, const std::string& dosdevices)
{
    for (int n = 7; n <= 256; ++n) {
        line.link = dosdevices + "/com" + std::to_string(n);
        line.comName = "COM" + std::to_string(n);
        if (symlink(line.slaveName.c_str(), line.link.c_str()) == 0)
            return true;
        if (errno != EEXIST)
            break;
    }
    line.link.clear();
    return false;
}

// Points the COM name at a fresh pair: a new link renamed over the old one.
bool Renew(Line& line)
{
    ClosePty(line);
    const std::string tmp = line.link + ".new";
    unlink(tmp.c_str());
    return OpenPty(line) && symlink(line.slaveName.c_str(), tmp.c_str()) == 0 &&
        rename(tmp.c_str(), line.link.c_str()) == 0;
}

long long NowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// Moves bytes to or from the non-blocking master until `count` are done or
// `waitMs` passed; a read answers what came, a write whether all went.
std::string Transfer(int fd, bool write, std::vector<unsigned char>& bytes, size_t count, long long waitMs)
{
    static const char digits[] = "0123456789abcdef";
    size_t done = 0;
    const long long deadline = NowMs() + waitMs;
    bytes.resize(count);
    while (done < count) {
        const ssize_t n = write ? ::write(fd, bytes.data() + done, count - done)
                                : read(fd, bytes.data() + done, std::min<size_t>(count - done, 65536));
        if (n > 0) {
            done += size_t(n);
            continue;
        }
        const long long left = deadline - NowMs();
        if (left <= 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
            break;
        pollfd p{fd, short(write ? POLLOUT : POLLIN), 0};
        poll(&p, 1, int(std::min(left, 50LL)));
    }
    if (write)
        return done == count ? "OK" : "ERR write";
    std::string reply = "OK ";
    for (size_t i = 0; i < done; ++i)
        reply += std::string{digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    return reply;
}

std::string Settings(const Line& line)
{
    termios t{};
    if (tcgetattr(line.slave, &t) != 0)
        return "ERR tcgetattr";
    const tcflag_t size = t.c_cflag & CSIZE, c = t.c_cflag, i = t.c_iflag;
    const bool odd = (c & PARODD) != 0;
    const char* parity = !(c & PARENB) ? "none" : (c & CMSPAR) ? (odd ? "mark" : "space") : (odd ? "odd" : "even");
    const bool raw =
        (t.c_lflag & (ICANON | ECHO | ISIG)) == 0 && (t.c_oflag & OPOST) == 0 && (i & (ICRNL | INLCR | IGNCR)) == 0;
    std::ostringstream s;
    s << "OK baud=" << ReadLineSpeed(line.slave) << " bits="
      << (size == CS5          ? 5
                 : size == CS6 ? 6
                 : size == CS7 ? 7
                               : 8)
      << " parity=" << parity << " stop=" << ((c & CSTOPB) ? 2 : 1) << " crtscts=" << ((c & CRTSCTS) ? 1 : 0)
      << " ixon=" << ((i & IXON) ? 1 : 0) << " ixoff=" << ((i & IXOFF) ? 1 : 0) << " xon=" << int(t.c_cc[VSTART])
      << " xoff=" << int(t.c_cc[VSTOP]) << " raw=" << (raw ? 1 : 0);
    return s.str();
}

std::string Serve(const std::string& request)
{
    std::istringstream in(request);
    std::string verb, hex;
    size_t index = 0, count = 0;
    long long ms = 0;
    in >> verb >> index;
    if (!in || index >= g_Lines.size())
        return "ERR bad request";
    Line& line = g_Lines[index];
    if (verb == "RENEW")
        return Renew(line) ? "OK" : "ERR renew";
    if (line.master < 0)
        return "ERR hung up";
    if (verb == "SETTINGS")
        return Settings(line);
    std::vector<unsigned char> bytes;
    if (verb == "SEND" && (in >> hex) && hex.size() % 2 == 0) {
        for (size_t i = 0; i < hex.size(); i += 2)
            bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
        return Transfer(line.master, true, bytes, bytes.size(), 10000);
    }
    if (verb == "RECV" && (in >> count >> ms))
        return Transfer(line.master, false, bytes, count, ms);
    int n = -1;
    if (verb == "INQUEUE" && ioctl(line.slave, FIONREAD, &n) == 0)
        return "OK " + std::to_string(n);
    if (verb == "HANGUP") {
        close(line.master);
        line.master = -1;
        return "OK";
    }
    return "ERR bad request";
}

// Answers the program's requests until it exits; its exit code.
int Run(int listener, char** program)
{
    const pid_t child = fork();
    if (child == 0) {
        execvp(program[0], program);
        std::perror("wine_serial_peer: exec");
        _exit(127);
    }
    int client = -1, status = 0;
    std::string pending;
    while (waitpid(child, &status, WNOHANG) != child) {
        pollfd p{client >= 0 ? client : listener, POLLIN, 0};
        if (poll(&p, 1, 50) <= 0)
            continue;
        if (client < 0) {
            client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            continue;
        }
        char buf[65536];
        const ssize_t n = read(client, buf, sizeof buf);
        if (n <= 0) {
            close(client);
            client = -1;
            continue;
        }
        pending.append(buf, size_t(n));
        for (size_t eol; (eol = pending.find('\n')) != std::string::npos;) {
            const std::string reply = Serve(pending.substr(0, eol)) + "\n";
            pending.erase(0, eol + 1);
            for (size_t sent = 0; sent < reply.size();) {
                const ssize_t w = write(client, reply.data() + sent, reply.size() - sent);
                if (w <= 0)
                    break;
                sent += size_t(w);
            }
        }
    }
    if (client >= 0)
        close(client);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

int main(int argc, char** argv)
{
    int arg = 1;
    size_t lineCount = 2;
    if (arg + 1 < argc && std::strcmp(argv[arg], "--lines") == 0) {
        lineCount = std::strtoul(argv[arg + 1], nullptr, 10);
        arg += 2;
    }
    if (arg + 1 >= argc || std::strcmp(argv[arg++], "--") != 0) {
        std::fprintf(stderr, "usage: %s [--lines N] -- program [args...]\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    const char* prefix = std::getenv("WINEPREFIX");
    const char* home = std::getenv("HOME");
    const std::string wine = prefix && *prefix ? prefix : std::string(home ? home : ".") + "/.wine";
    const std::string dosdevices = wine + "/dosdevices";
    mkdir(wine.c_str(), 0755);
    mkdir(dosdevices.c_str(), 0755);

    g_Lines.resize(lineCount);
    std::string names;
    bool ready = true;
    for (Line& line : g_Lines) {
        ready = ready && OpenPty(line) && LinkCom(line, dosdevices);
        names += (names.empty() ? "" : ",") + line.comName;
    }
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    ready = ready && listener >= 0 && bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
        listen(listener, 1) == 0 && getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) == 0;
    int rc = 1;
    if (ready) {
        setenv("HDWLIB_SERIAL_PEER", ("127.0.0.1:" + std::to_string(ntohs(addr.sin_port))).c_str(), 1);
        setenv("HDWLIB_SERIAL_PORTS", names.c_str(), 1);
        std::fprintf(stderr, "wine_serial_peer: %s\n", names.c_str());
        rc = Run(listener, argv + arg);
    } else {
        std::fprintf(
            stderr, "wine_serial_peer: cannot make the lines in %s: %s\n", dosdevices.c_str(), std::strerror(errno));
    }
    for (Line& line : g_Lines) {
        if (!line.link.empty())
            unlink(line.link.c_str());
        ClosePty(line);
    }
    if (listener >= 0)
        close(listener);
    return rc;
}

// Runs a Windows test program under wine with real serial lines: one
// pseudo-terminal pair per line, its slave linked as a COM port of the wine
// prefix ($WINEPREFIX/dosdevices/comN), its master played by this peer.
//
//     wine_serial_peer [--lines N] [--echo] -- wine program.exe [args...]
//
// --echo makes every line write back what arrives. The program gets
// HDWLIB_SERIAL_PEER (127.0.0.1:PORT of the control socket) and
// HDWLIB_SERIAL_PORTS (the COM names, line 0 first), and asks one line per
// request, answered "OK ..." or "ERR text":
//     SETTINGS i   baud= bits= parity=none|odd|even|mark|space stop=1|2
//                  crtscts= ixon= ixoff= xon= xoff= raw= of the slave
//     SEND i HEX   write the bytes to the master
//     RECV i N MS  the hex of up to N bytes, waiting up to MS ms for all
//     SOME i MS    the hex of what came after waiting up to MS ms for anything
//     INQUEUE i    bytes waiting on the slave for the program
//     HANGUP i     close the master: the far side is gone
//     RENEW i      a fresh pair behind the same COM name
// The exit code is the program's.
#include <cerrno>
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
#include <arpa/inet.h>
#include <chrono>

long ReadLineSpeed(int fd);

namespace {

struct Line {
    int master = -1;
    int slave = -1; // kept open so that the line does not hang up between opens
    pid_t holder = -1; // the process whose controlling terminal the slave is
    std::string slaveName;
    std::string link; // the dosdevices entry
    std::string comName;
};

std::vector<Line> g_Lines;
bool g_Echo = false;

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
    // would then hang it up. A small holder process takes the terminal first.
    // The line is handed out only once the holder has it.
    int ready[2];
    if (pipe(ready) != 0)
        return false;
    line.holder = fork();
    if (line.holder == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGHUP, SIG_IGN);
        for (int fd = 3; fd < 1024; ++fd)
            if (fd != line.slave && fd != ready[1])
                close(fd);
        const char ok = (setsid() >= 0 && ioctl(line.slave, TIOCSCTTY, 0) == 0) ? 1 : 0;
        if (write(ready[1], &ok, 1) != 1)
            _exit(1);
        close(ready[1]);
        for (;;)
            pause();
    }
    close(ready[1]);
    char ok = 0;
    const bool held = line.holder > 0 && read(ready[0], &ok, 1) == 1 && ok == 1;
    close(ready[0]);
    return held;
}

void ClosePty(Line& line)
{
    if (line.master >= 0)
        close(line.master);
    if (line.slave >= 0)
        close(line.slave);
    line.master = line.slave = -1;
    if (line.holder > 0) {
        kill(line.holder, SIGKILL);
        waitpid(line.holder, nullptr, 0);
    }
    line.holder = -1;
}

// Takes the first free comN from 7 on: symlink() fails on an existing entry,
// so two peers on one prefix never share a name.
bool LinkCom(Line& line, const std::string& dosdevices)
{
    for (int n = 7; n <= 256; ++n) {
        const std::string link = dosdevices + "/com" + std::to_string(n);
        if (symlink(line.slaveName.c_str(), link.c_str()) == 0) {
            line.link = link;
            line.comName = "COM" + std::to_string(n);
            return true;
        }
        if (errno != EEXIST)
            return false;
    }
    return false;
}

// Renames a fresh link over the old one, so the COM name never goes missing.
bool Relink(Line& line)
{
    const std::string tmp = line.link + ".new";
    unlink(tmp.c_str());
    if (symlink(line.slaveName.c_str(), tmp.c_str()) != 0)
        return false;
    return rename(tmp.c_str(), line.link.c_str()) == 0;
}

std::string Hex(const std::string& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (unsigned char b : bytes)
        s += {digits[b >> 4], digits[b & 15]};
    return s;
}

bool Unhex(const std::string& s, std::string& out)
{
    for (size_t i = 0; i < s.size(); i += 2) {
        char* end = nullptr;
        const std::string byte = s.substr(i, 2);
        out += char(std::strtoul(byte.c_str(), &end, 16));
        if (byte.size() != 2 || *end)
            return false;
    }
    return true;
}

long long NowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

bool WriteAll(int fd, const std::string& bytes)
{
    size_t done = 0;
    const long long deadline = NowMs() + 10000;
    while (done < bytes.size() && NowMs() < deadline) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n > 0) {
            done += size_t(n);
        } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        } else {
            pollfd p{fd, POLLOUT, 0};
            poll(&p, 1, 50);
        }
    }
    return done == bytes.size();
}

// Reads from a non-blocking master until `count` bytes or the deadline.
std::string ReadUpTo(int fd, size_t count, long long waitMs)
{
    std::string out;
    const long long deadline = NowMs() + waitMs;
    while (out.size() < count) {
        char buf[4096];
        const ssize_t n = read(fd, buf, std::min(sizeof buf, count - out.size()));
        if (n > 0) {
            out.append(buf, size_t(n));
            continue;
        }
        const long long left = deadline - NowMs();
        if (left <= 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
            break;
        pollfd p{fd, POLLIN, 0};
        poll(&p, 1, int(std::min(left, 50LL)));
    }
    return out;
}

std::string Settings(const Line& line)
{
    termios t{};
    if (tcgetattr(line.slave, &t) != 0)
        return "ERR tcgetattr";
    const tcflag_t size = t.c_cflag & CSIZE;
    const int bits = size == CS5 ? 5 : size == CS6 ? 6 : size == CS7 ? 7 : 8;
    const bool odd = (t.c_cflag & PARODD) != 0;
    const char* parity = !(t.c_cflag & PARENB) ? "none"
        : (t.c_cflag & CMSPAR)                 ? (odd ? "mark" : "space")
                                               : (odd ? "odd" : "even");
    const bool raw = (t.c_lflag & (ICANON | ECHO | ISIG)) == 0 && (t.c_oflag & OPOST) == 0 &&
        (t.c_iflag & (ICRNL | INLCR | IGNCR)) == 0;
    std::ostringstream s;
    s << "OK baud=" << ReadLineSpeed(line.slave) << " bits=" << bits << " parity=" << parity
      << " stop=" << ((t.c_cflag & CSTOPB) ? 2 : 1) << " crtscts=" << ((t.c_cflag & CRTSCTS) ? 1 : 0)
      << " ixon=" << ((t.c_iflag & IXON) ? 1 : 0) << " ixoff=" << ((t.c_iflag & IXOFF) ? 1 : 0)
      << " xon=" << int(t.c_cc[VSTART]) << " xoff=" << int(t.c_cc[VSTOP]) << " raw=" << (raw ? 1 : 0);
    return s.str();
}

std::string Serve(const std::string& request)
{
    std::istringstream in(request);
    std::string verb;
    size_t index = 0;
    in >> verb >> index;
    if (!in || index >= g_Lines.size())
        return "ERR bad request";
    Line& line = g_Lines[index];
    if (verb == "RENEW") {
        ClosePty(line);
        return OpenPty(line) && Relink(line) ? "OK" : "ERR renew";
    }
    if (line.master < 0)
        return "ERR hung up";
    if (verb == "SETTINGS")
        return Settings(line);
    if (verb == "SEND") {
        std::string hex, bytes;
        in >> hex;
        if (!Unhex(hex, bytes))
            return "ERR hex";
        return WriteAll(line.master, bytes) ? "OK" : "ERR write";
    }
    if (verb == "RECV" || verb == "SOME") {
        size_t count = 1 << 20;
        long long ms = 0;
        if (verb == "RECV")
            in >> count;
        in >> ms;
        if (!in)
            return "ERR bad request";
        if (verb == "SOME") {
            pollfd p{line.master, POLLIN, 0};
            poll(&p, 1, int(ms));
            ms = 0;
        }
        return "OK " + Hex(ReadUpTo(line.master, count, ms));
    }
    int n = -1;
    if (verb == "INQUEUE")
        return ioctl(line.slave, FIONREAD, &n) == 0 ? "OK " + std::to_string(n) : "ERR ioctl";
    if (verb == "HANGUP") {
        close(line.master);
        line.master = -1;
        return "OK";
    }
    return "ERR unknown request";
}

struct Client {
    int fd;
    std::string pending;
};

} // namespace

int main(int argc, char** argv)
{
    size_t lineCount = 2;
    int arg = 1;
    for (; arg < argc; ++arg) {
        if (std::strcmp(argv[arg], "--lines") == 0 && arg + 1 < argc)
            lineCount = std::strtoul(argv[++arg], nullptr, 10);
        else if (std::strcmp(argv[arg], "--echo") == 0)
            g_Echo = true;
        else if (std::strcmp(argv[arg], "--") == 0) {
            ++arg;
            break;
        } else
            break;
    }
    if (arg >= argc) {
        std::fprintf(stderr, "usage: %s [--lines N] [--echo] -- program [args...]\n", argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);

    const char* prefix = std::getenv("WINEPREFIX");
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : ".";
    const std::string dosdevices = (prefix && *prefix ? std::string(prefix) : home + "/.wine") + "/dosdevices";
    mkdir(dosdevices.substr(0, dosdevices.size() - 11).c_str(), 0755);
    mkdir(dosdevices.c_str(), 0755);

    g_Lines.resize(lineCount);
    std::string names;
    int rc = 1;
    bool ready = true;
    for (Line& line : g_Lines) {
        if (!OpenPty(line) || !LinkCom(line, dosdevices)) {
            std::fprintf(
                stderr, "wine_serial_peer: cannot make a line in %s: %s\n", dosdevices.c_str(), std::strerror(errno));
            ready = false;
            break;
        }
        names += (names.empty() ? "" : ",") + line.comName;
    }

    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (ready &&
        (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
            listen(listener, 4) != 0 || getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len) != 0)) {
        std::perror("wine_serial_peer: control socket");
        ready = false;
    }

    if (ready) {
        setenv("HDWLIB_SERIAL_PEER", ("127.0.0.1:" + std::to_string(ntohs(addr.sin_port))).c_str(), 1);
        setenv("HDWLIB_SERIAL_PORTS", names.c_str(), 1);
        std::fprintf(stderr, "wine_serial_peer: %s\n", names.c_str());
        const pid_t child = fork();
        if (child == 0) {
            execvp(argv[arg], argv + arg);
            std::perror("wine_serial_peer: exec");
            _exit(127);
        }
        std::vector<Client> clients;
        for (;;) {
            int status = 0;
            if (waitpid(child, &status, WNOHANG) == child) {
                rc = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
                break;
            }
            std::vector<pollfd> fds{{listener, POLLIN, 0}};
            for (const Client& c : clients)
                fds.push_back({c.fd, POLLIN, 0});
            for (const Line& line : g_Lines)
                if (g_Echo && line.master >= 0)
                    fds.push_back({line.master, POLLIN, 0});
            poll(fds.data(), fds.size(), 50);
            for (size_t i = clients.size() + 1; i < fds.size(); ++i) {
                char buf[4096];
                const ssize_t n = (fds[i].revents & POLLIN) ? read(fds[i].fd, buf, sizeof buf) : 0;
                if (n > 0)
                    WriteAll(fds[i].fd, std::string(buf, size_t(n)));
            }
            if (fds[0].revents & POLLIN) {
                const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd >= 0)
                    clients.push_back({fd, {}});
            }
            for (size_t i = 0; i < clients.size();) {
                Client& c = clients[i];
                char buf[65536];
                const ssize_t n =
                    (fds[i + 1].revents & (POLLIN | POLLHUP | POLLERR)) ? read(c.fd, buf, sizeof buf) : -2;
                if (n == 0 || (n < 0 && n != -2 && errno != EINTR)) {
                    close(c.fd);
                    clients.erase(clients.begin() + long(i));
                    fds.erase(fds.begin() + long(i) + 1);
                    continue;
                }
                if (n > 0)
                    c.pending.append(buf, size_t(n));
                size_t eol;
                while ((eol = c.pending.find('\n')) != std::string::npos) {
                    const std::string request = c.pending.substr(0, eol);
                    c.pending.erase(0, eol + 1);
                    WriteAll(c.fd, Serve(request) + "\n");
                }
                ++i;
            }
        }
        for (const Client& c : clients)
            close(c.fd);
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

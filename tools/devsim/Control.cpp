// The control language of devsim, and the ways in from outside the process:
//   DEVSIM_INIT="cmd; cmd"  commands run when devsim loads
//   DEVSIM_LOG=path         every transfer appended as a line
//   DEVSIM_CONTROL=path     a Unix stream socket taking one command per connection
//                           (tools/devsim/devsimctl)
// The variables are removed once read, so children of the process (the daemon runs `ip`)
// do not start a second server on the same socket. The commands are in CommandHelp.h.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "tools/devsim/CommandHelp.h"
#include "tools/devsim/DevSim.h"
#include "tools/devsim/Simulator.h"

namespace lumacast::devsim {

namespace {

// The words of one command. Reading a value that is missing or malformed records the first
// problem and yields a harmless default; a command applies nothing unless ok().
class Words {
  public:
    explicit Words(std::vector<std::string> words) : mWords(std::move(words)) {}

    bool ok() const { return mError.empty(); }
    const std::string& error() const { return mError; }
    size_t size() const { return mWords.size(); }
    void fail(const std::string& why) {
        if (mError.empty()) mError = why;
    }

    const std::string& word(size_t i) {
        static const std::string kNone;
        if (i < mWords.size()) return mWords[i];
        fail("missing argument");
        return kNone;
    }

    long number(const std::string& text, long min, long max) {
        errno = 0;
        char* end = nullptr;
        const long v = text.empty() ? 0 : strtol(text.c_str(), &end, 0);
        if (text.empty() || errno != 0 || *end != '\0' || v < min || v > max) {
            fail("bad number '" + text + "' (" + std::to_string(min) + ".." + std::to_string(max) +
                 ")");
            return min;
        }
        return v;
    }
    long number(size_t i, long min, long max) { return number(word(i), min, max); }

    bool goodBad(const std::string& text) {
        if (text != "good" && text != "bad") fail("expected good or bad, got '" + text + "'");
        return text == "bad";
    }

    // key=value options from word `from` on.
    std::vector<std::pair<std::string, std::string>> options(size_t from) {
        std::vector<std::pair<std::string, std::string>> out;
        for (size_t i = from; i < mWords.size(); ++i) {
            const size_t eq = mWords[i].find('=');
            if (eq == std::string::npos || eq == 0) {
                fail("expected key=value, got '" + mWords[i] + "'");
                continue;
            }
            out.emplace_back(mWords[i].substr(0, eq), mWords[i].substr(eq + 1));
        }
        return out;
    }

  private:
    std::vector<std::string> mWords;
    std::string mError;
};

std::string reply(const Words& w, const std::string& okText = "ok") {
    return w.ok() ? okText : "error: " + w.error();
}

std::string runBirch(Words& w) {
    const std::string what = w.word(1);
    if (what == "version" || what == "marker") {
        const long v = w.number(2, 0, what == "version" ? 0xFFFF : 0xFF);
        if (!w.ok()) return reply(w);
        withBirch([&](BirchMcu& m) {
            if (what == "version") {
                m.version = static_cast<uint16_t>(v);
            } else {
                m.versionMarker = static_cast<uint8_t>(v);
            }
        });
    } else if (what == "version-crc" || what == "status-head" || what == "status-crc") {
        const bool bad = w.goodBad(w.word(2));
        if (!w.ok()) return reply(w);
        withBirch([&](BirchMcu& m) {
            (what == "version-crc"   ? m.versionBadCrc
             : what == "status-head" ? m.statusBadHead
                                     : m.statusBadCrc) = bad;
        });
    } else if (what == "ack") {
        BirchMcu::AckFault f;
        for (const auto& [k, v] : w.options(2)) {
            if (k == "kid") {
                f.kid = static_cast<int>(w.number(v, 0, 0xFF));
            } else if (k == "skip") {
                f.skip = static_cast<int>(w.number(v, 0, INT_MAX));
            } else if (k == "count") {
                f.count = static_cast<int>(w.number(v, -1, INT_MAX));
            } else if (k == "head") {
                f.head = static_cast<int>(w.number(v, 0, 0xFF));
            } else if (k == "echo") {
                f.echoKid = static_cast<int>(w.number(v, 0, 0xFF));
            } else if (k == "status") {
                f.status = static_cast<int>(w.number(v, 0, 0xFF));
            } else if (k == "crc") {
                f.badCrc = w.goodBad(v);
            } else {
                w.fail("unknown ack option '" + k + "'");
            }
        }
        if (!w.ok()) return reply(w);
        withBirch([&](BirchMcu& m) { m.ackFaults.push_back(f); });
    } else if (what == "status") {
        std::vector<uint8_t> replies;
        const std::string list = w.word(2);
        if (list != "auto") {
            std::stringstream ss(list);
            std::string item;
            while (std::getline(ss, item, ',')) {
                replies.push_back(static_cast<uint8_t>(w.number(item, 0, 0xFF)));
            }
        }
        if (!w.ok()) return reply(w);
        withBirch([&](BirchMcu& m) { m.statusReplies = replies; });
    } else {
        w.fail("unknown birch setting '" + what + "'");
    }
    return reply(w);
}

std::string runCedar(Words& w) {
    const int bus = static_cast<int>(w.number(1, 1, 2));
    const std::string what = w.word(2);
    if (what == "state" || what == "rise") {
        const uint8_t v = static_cast<uint8_t>(w.number(3, 0, 0xFF));
        if (!w.ok()) return reply(w);
        withCedar(bus, [&](CedarMcu& m) { (what == "state" ? m.state : m.riseTime) = v; });
    } else if (what == "version") {
        const std::string text = w.word(3);
        if (text.size() > 18) w.fail("version text longer than 18 bytes");
        if (!w.ok()) return reply(w);
        withCedar(bus, [&](CedarMcu& m) { m.version = text; });
    } else if (what == "ready-after") {
        const std::string v = w.word(3);
        const int polls = v == "never" ? -1 : static_cast<int>(w.number(v, 0, INT_MAX));
        if (!w.ok()) return reply(w);
        withCedar(bus, [&](CedarMcu& m) { m.readyAfterPolls = polls; });
    } else if (what == "reject-info" || what == "reject-finish") {
        const int n = static_cast<int>(w.number(3, 0, INT_MAX));
        if (!w.ok()) return reply(w);
        withCedar(bus, [&](CedarMcu& m) {
            (what == "reject-info" ? m.infoRejects : m.finishRejects) = n;
        });
    } else if (what == "reject-package") {
        const uint32_t k = static_cast<uint32_t>(w.number(3, 1, INT_MAX));
        const int n = static_cast<int>(w.number(4, 0, INT_MAX));
        if (!w.ok()) return reply(w);
        withCedar(bus, [&](CedarMcu& m) { m.packageRejects[k] = n; });
    } else {
        w.fail("unknown cedar setting '" + what + "'");
    }
    return reply(w);
}

std::string runRefuse(Words& w) {
    Fault f;
    for (const auto& [k, v] : w.options(1)) {
        if (k == "bus") {
            f.bus = static_cast<int>(w.number(v, 0, 255));
        } else if (k == "addr") {
            f.addr = static_cast<int>(w.number(v, 0, 0x7F));
        } else if (k == "reg") {
            f.reg = static_cast<int>(w.number(v, 0, 0xFF));
        } else if (k == "kind") {
            if (v == "any") {
                f.kind = Fault::Kind::Any;
            } else if (v == "write") {
                f.kind = Fault::Kind::Write;
            } else if (v == "read") {
                f.kind = Fault::Kind::Read;
            } else {
                w.fail("kind is any, write or read");
            }
        } else if (k == "skip") {
            f.skip = static_cast<int>(w.number(v, 0, INT_MAX));
        } else if (k == "count") {
            f.count = static_cast<int>(w.number(v, -1, INT_MAX));
        } else if (k == "errno") {
            f.error = static_cast<int>(w.number(v, 1, 4095));
        } else {
            w.fail("unknown refuse option '" + k + "'");
        }
    }
    if (w.ok()) addFault(f);
    return reply(w);
}

constexpr std::pair<const char*, Board> kBoards[] = {
        {"all", Board::All},       {"birch", Board::Birch}, {"cedar", Board::Cedar},
        {"damson", Board::Damson}, {"none", Board::None},
};

// "fired 2, 1 left" for a fault that is used up one answer at a time.
std::string firedLeft(int fired, int left) {
    return "fired " + std::to_string(fired) + ", " +
           (left < 0 ? std::string("for ever") : std::to_string(left) + " left");
}

std::string describeFault(const Fault& f) {
    auto field = [](const char* name, int v, bool hex) {
        if (v < 0) return std::string();
        char buf[32];
        snprintf(buf, sizeof(buf), hex ? " %s=0x%02x" : " %s=%d", name, v);
        return std::string(buf);
    };
    static const char* const kKinds[] = {"any", "write", "read"};
    return "refuse" + field("bus", f.bus, false) + field("addr", f.addr, true) +
           field("reg", f.reg, true) + " kind=" + kKinds[static_cast<int>(f.kind)] +
           (f.skip > 0 ? field("skip", f.skip, false) : "") + field("errno", f.error, false) +
           ": " + firedLeft(f.fired, f.count);
}

// Every fault that is armed or has fired, one line each; what the interposer and the
// MCUs turned away since the last reset.
std::vector<std::string> faultLines(const BoardStatus& b) {
    std::vector<std::string> out;
    for (const auto& [bus, present] : b.busPresent) {
        const auto it = b.busRefusals.find(bus);
        const int refused = it == b.busRefusals.end() ? 0 : it->second;
        if (present != b.busByBoard.at(bus) || refused > 0) {
            out.push_back("bus " + std::to_string(bus) + (present ? " present" : " missing") +
                          ": refused " + std::to_string(refused) + " opens and transfers");
        }
    }
    if (b.venusPresent != b.venusByBoard || b.venusRefuses || b.venusRefusals > 0) {
        out.push_back(std::string("venus ") + (b.venusPresent ? "present" : "missing") +
                      (b.venusRefuses ? ", refusing" : "") + ": refused " +
                      std::to_string(b.venusRefusals) + " opens and pin reads");
    }
    for (const Fault& f : faults()) out.push_back(describeFault(f));
    withBirch([&](BirchMcu& m) {
        for (const BirchMcu::AckFault& f : m.ackFaults) {
            out.push_back("birch ack kid=" + std::to_string(f.kid) + ": " +
                          firedLeft(f.fired, f.count));
        }
        if (m.versionBadCrc || m.badVersionReplies > 0) {
            out.push_back("birch version-crc " + std::string(m.versionBadCrc ? "bad" : "good") +
                          ": " + std::to_string(m.badVersionReplies) + " bad replies");
        }
        if (m.statusBadHead || m.statusBadCrc || m.badStatusReplies > 0) {
            out.push_back("birch status-head/crc: " + std::to_string(m.badStatusReplies) +
                          " bad replies");
        }
        if (!m.statusReplies.empty()) {
            out.push_back("birch status list: " + std::to_string(m.statusPolls) +
                          " polls answered");
        }
    });
    for (int bus : {kCedarBus, kDamsonBus}) {
        withCedar(bus, [&](CedarMcu& m) {
            const std::string head = "cedar " + std::to_string(bus) + " ";
            if (m.readyAfterPolls != 0 || m.busyAnswers > 0) {
                out.push_back(head + "ready-after " +
                              (m.readyAfterPolls < 0 ? std::string("never")
                                                     : std::to_string(m.readyAfterPolls)) +
                              ": " + std::to_string(m.busyAnswers) + " polls answered busy");
            }
            if (m.infoRejects > 0 || m.infoRefused > 0) {
                out.push_back(head + "reject-info: " + firedLeft(m.infoRefused, m.infoRejects));
            }
            std::map<uint32_t, std::pair<int, int>> packages;  // fired, left
            for (const auto& [k, n] : m.packagesRefused) packages[k].first = n;
            for (const auto& [k, n] : m.packageRejects) packages[k].second = n;
            for (const auto& [k, fl] : packages) {
                if (fl.first > 0 || fl.second > 0) {
                    out.push_back(head + "reject-package " + std::to_string(k) + ": " +
                                  firedLeft(fl.first, fl.second));
                }
            }
            if (m.finishRejects > 0 || m.finishRefused > 0) {
                out.push_back(head +
                              "reject-finish: " + firedLeft(m.finishRefused, m.finishRejects));
            }
        });
    }
    return out;
}

std::string status() {
    const BoardStatus b = boardStatus();
    std::string board = "?";
    for (const auto& [name, value] : kBoards) {
        if (value == b.board) board = name;
    }
    std::string out = "ok\nboard: " + board + "\ntime: " + (b.virtualTime ? "virtual" : "real") +
                      "\nopen descriptors: " + std::to_string(openDescriptors()) +
                      "\nclock us: " + std::to_string(nowUs()) +
                      "\ntransfers: " + std::to_string(transfers().size());
    withBirch([&](BirchMcu& m) {
        out += "\nbirch: version " + std::to_string(m.version) + ", requests " +
               std::to_string(m.requests) + ", packages " + std::to_string(m.packages) +
               ", image bytes " + std::to_string(m.image.size()) + (m.finished ? ", finished" : "");
    });
    for (int bus : {kCedarBus, kDamsonBus}) {
        withCedar(bus, [&](CedarMcu& m) {
            out += "\ncedar on i2c-" + std::to_string(bus) + ": state " + std::to_string(m.state) +
                   ", commands " + std::to_string(m.commands.size()) + ", packages " +
                   std::to_string(m.received.size()) + (m.finished ? ", finished" : "");
        });
    }
    const std::vector<std::string> armed = faultLines(b);
    out += armed.empty() ? "\nfaults: none" : "\nfaults:";
    for (const std::string& line : armed) out += "\n  " + line;
    return out;
}

std::string run(Words& w) {
    const std::string verb = w.word(0);
    if (verb == "reset") {
        reset();
    } else if (verb == "board") {
        const std::string b = w.word(1);
        bool found = false;
        for (const auto& [name, board] : kBoards) {
            if (b == name) {
                setBoard(board);
                found = true;
            }
        }
        if (!found) w.fail("unknown board '" + b + "'");
    } else if (verb == "bus") {
        const int bus = static_cast<int>(w.number(1, 0, 255));
        const std::string p = w.word(2);
        if (p != "present" && p != "missing") w.fail("bus <n> present|missing");
        if (w.ok()) setBusPresent(bus, p == "present");
    } else if (verb == "refuse") {
        return runRefuse(w);
    } else if (verb == "clear-faults") {
        clearFaults();
    } else if (verb == "venus") {
        const std::string v = w.word(1);
        if (v == "present" || v == "missing") {
            setVenusPresent(v == "present");
        } else if (v == "refuse" || v == "accept") {
            setVenusRefuses(v == "refuse");
        } else {
            w.fail("venus present|missing|refuse|accept");
        }
    } else if (verb == "pin") {
        const std::string name = w.word(1);
        if (name.size() >= 32) w.fail("pin name longer than 31 bytes");
        const long v = w.number(2, 0, 0xFF);
        if (w.ok()) setPin(name, static_cast<uint8_t>(v));
    } else if (verb == "birch") {
        return runBirch(w);
    } else if (verb == "cedar") {
        return runCedar(w);
    } else if (verb == "time") {
        const std::string t = w.word(1);
        if (t != "virtual" && t != "real") w.fail("time virtual|real");
        if (w.ok()) setVirtualTime(t == "virtual");
    } else if (verb == "clock") {
        return "ok\n" + std::to_string(nowUs());
    } else if (verb == "transfers") {
        const std::vector<Transfer> all = transfers();
        size_t n = all.size();
        if (w.size() > 1) n = std::min(n, static_cast<size_t>(w.number(1, 0, LONG_MAX)));
        if (!w.ok()) return reply(w);
        std::string out = "ok";
        for (size_t i = all.size() - n; i < all.size(); ++i) {
            out += "\n" + internal::formatTransfer(all[i]);
        }
        return out;
    } else if (verb == "clear-log") {
        clearTransfers();
        clearPauses();
    } else if (verb == "status" || verb == "stats") {
        return status();
    } else if (verb == "help") {
        // Without its last newline: the server ends every reply with one.
        return "ok\n" + std::string(kCommandHelp, sizeof(kCommandHelp) - 2);
    } else {
        w.fail("unknown command '" + verb + "'");
    }
    return reply(w);
}

void serve(int listener) {
    for (;;) {
        const int conn = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (conn < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            return;
        }
        std::string line;
        char buf[512];
        // One command per connection; a peer that sends too much is cut off.
        while (line.find('\n') == std::string::npos && line.size() < 4096) {
            const ssize_t n = read(conn, buf, sizeof(buf));
            if (n <= 0) break;
            line.append(buf, static_cast<size_t>(n));
        }
        const std::string reply = command(line.substr(0, line.find('\n'))) + "\n";
        const char* p = reply.data();
        size_t left = reply.size();
        while (left > 0) {
            const ssize_t n = send(conn, p, left, MSG_NOSIGNAL);
            if (n <= 0) break;
            p += n;
            left -= static_cast<size_t>(n);
        }
        close(conn);
    }
}

void startControlSocket(const char* path) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(addr.sun_path)) return;
    strcpy(addr.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    unlink(path);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 8) != 0) {
        close(fd);
        return;
    }
    std::thread(serve, fd).detach();
}

__attribute__((constructor)) void initFromEnvironment() {
    if (const char* init = getenv("DEVSIM_INIT")) {
        std::stringstream ss(init);
        std::string cmd;
        while (std::getline(ss, cmd, ';')) command(cmd);
        unsetenv("DEVSIM_INIT");
    }
    if (const char* log = getenv("DEVSIM_LOG")) {
        const int fd = open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (fd >= 0) internal::setTransferLogFd(fd);
        unsetenv("DEVSIM_LOG");
    }
    if (const char* control = getenv("DEVSIM_CONTROL")) {
        startControlSocket(control);
        unsetenv("DEVSIM_CONTROL");
    }
}

}  // namespace

std::string command(const std::string& line) {
    std::vector<std::string> words;
    std::stringstream ss(line);
    std::string word;
    while (ss >> word) words.push_back(word);
    if (words.empty()) return "ok";
    Words w(std::move(words));
    return run(w);
}

}  // namespace lumacast::devsim

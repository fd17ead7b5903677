// SPDX-License-Identifier: MIT
#include "peers.h"
#include "wire/framing.h"
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <QWebSocket>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fmt/format.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace soak {

namespace {

constexpr int ticksPerSecond = 50;
constexpr std::size_t mostPeers = 12;
constexpr std::size_t mostViewers = 4;
constexpr std::uint32_t longestDatagram = 1 << 20;

constexpr char handshake[] =
    "GET /stream HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
    "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n";

enum class End { Close, Reset };

int connectTo(std::uint16_t port, bool isSmall)
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const int bytes = 4096;
    if (isSmall)
        (void)::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    place.sin_port = htons(port);
    if (::connect(descriptor, reinterpret_cast<sockaddr*>(&place), sizeof place) == 0 || errno == EINPROGRESS)
        return descriptor;
    ::close(descriptor);
    return -1;
}

// Everything that arrives is thrown away before the system answers it: to the other end this peer is a cable
// that was pulled.
void fallSilent(int descriptor)
{
    sock_filter dropAll{BPF_RET | BPF_K, 0, 0, 0};
    const sock_fprog program{1, &dropAll};
    (void)::setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

} // namespace

struct Peers::Kind {
    bool atMirror;
    const char* greeting;    // sent when it is connected
    std::size_t readPerTick; // bytes
    int lifeTicks;           // at most
    End end;
    bool fallsSilent = false;
    bool closesHalf = false;
    bool talks = false;
};

const std::vector<Peers::Kind>& Peers::kinds()
{
    constexpr std::size_t all = 1 << 22;
    static const std::vector<Kind> list{
        {true, "", all, 8 * ticksPerSecond, End::Close},
        {true, "", 0, 40 * ticksPerSecond, End::Close}, // stalls
        {false, handshake, all, 3 * ticksPerSecond, End::Reset},
        {true, "", all, 2 * ticksPerSecond, End::Reset},
        {true, "", all, 40 * ticksPerSecond, End::Reset, true}, // vanishes
        {false, handshake, 0, 20 * ticksPerSecond, End::Close}, // stalls
        {true, "", all, 4 * ticksPerSecond, End::Close, false, true},
        {true, "", 2'048, 10 * ticksPerSecond, End::Reset}, // too slow
        {false, "GET /stream HTTP/1.1\r\nUpgr", 0, 1 * ticksPerSecond, End::Reset},
        {true, "", all, 4 * ticksPerSecond, End::Close, false, false, true},
        {false, "GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n", all, 1 * ticksPerSecond, End::Close},
        {false, "GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", 64, 2 * ticksPerSecond, End::Reset},
    };
    return list;
}

struct Peers::Peer {
    Peer(const Kind& kind_, int descriptor_, int ticks)
        : kind(kind_)
        , descriptor(descriptor_)
        , ticksLeft(ticks)
    {}
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer()
    {
        const linger now{1, 0};
        if (kind.end == End::Reset)
            (void)::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        ::close(descriptor);
    }

    const Kind& kind;
    int descriptor;
    int ticksLeft;
    int age = 0;
    bool isOver = false;
    std::vector<unsigned char> unread; // of the mirror, from the beginning of a datagram on
};

struct Peers::Viewer {
    QWebSocket socket;
    int ticksLeft = 0;
};

Peers::Peers(const Places& places, unsigned seed)
    : m_places(places)
    , m_random(seed)
{}

Peers::~Peers() = default;

void Peers::leave()
{
    m_peers.clear();
    m_viewers.clear();
}

void Peers::tick()
{
    open();
    openViewer();
    for (const std::unique_ptr<Peer>& peer : m_peers)
        read(*peer);
    for (const std::unique_ptr<Viewer>& viewer : m_viewers)
        act(*viewer);
    std::erase_if(m_peers, [](const auto& peer) { return peer->isOver || --peer->ticksLeft <= 0; });
    std::erase_if(m_viewers, [](const auto& viewer) {
        return viewer->socket.state() == QAbstractSocket::UnconnectedState || --viewer->ticksLeft <= 0;
    });
}

void Peers::open()
{
    const Kind& kind = kinds()[m_nextKind % kinds().size()];
    const std::uint16_t port = kind.atMirror ? m_places.mirror : m_places.page;
    if (m_peers.size() >= mostPeers || below(5) != 0)
        return;
    ++m_nextKind;
    const bool stalls = kind.readPerTick == 0;
    const int descriptor = port == 0 ? -1 : connectTo(port, stalls);
    if (descriptor < 0)
        return;
    // Those whose fate takes long live as long as they may.
    const auto longest = static_cast<unsigned>(kind.lifeTicks);
    const bool waitsForItsEnd = stalls || kind.fallsSilent;
    const unsigned life = waitsForItsEnd ? longest : 1 + below(longest);
    m_peers.push_back(std::make_unique<Peer>(kind, descriptor, static_cast<int>(life)));
    ++m_connections;
}

void Peers::read(Peer& peer)
{
    static std::array<unsigned char, 1 << 16> buffer;
    const std::string_view greeting = peer.kind.greeting;
    ++peer.age;
    if (peer.age == 1 && !greeting.empty())
        (void)::send(peer.descriptor, greeting.data(), greeting.size(), MSG_NOSIGNAL);
    if (peer.age == ticksPerSecond / 2 && peer.kind.fallsSilent)
        fallSilent(peer.descriptor);
    if (peer.age == ticksPerSecond / 2 && peer.kind.closesHalf)
        ::shutdown(peer.descriptor, SHUT_WR);
    if (peer.kind.talks)
        (void)::send(peer.descriptor, buffer.data(), 10'000, MSG_NOSIGNAL);
    for (std::size_t left = peer.kind.readPerTick; left > 0;) {
        const ssize_t taken = ::recv(peer.descriptor, buffer.data(), std::min(left, buffer.size()), 0);
        const bool isOver = taken == 0 || (taken < 0 && errno != EAGAIN && errno != EINTR);
        peer.isOver = peer.isOver || (isOver && !peer.kind.fallsSilent);
        if (taken <= 0)
            return;
        left -= static_cast<std::size_t>(taken);
        if (peer.kind.atMirror)
            follow(peer, buffer.data(), static_cast<std::size_t>(taken));
    }
}

// A client of the mirror gets whole datagrams from its first byte on.
void Peers::follow(Peer& peer, const unsigned char* bytes, std::size_t size)
{
    m_mirrored += size;
    peer.unread.insert(peer.unread.end(), bytes, bytes + size);
    std::size_t begin = 0;
    try {
        for (;;) {
            const wire::View rest{peer.unread.data() + begin, peer.unread.size() - begin};
            const std::optional<std::uint32_t> total = wire::datagramSize(rest, longestDatagram);
            if (!total || *total > rest.size())
                break;
            begin += *total;
        }
    } catch (const wire::BadDatagramSize&) {
        ++m_misframed;
        peer.isOver = true;
    }
    peer.unread.erase(peer.unread.begin(), peer.unread.begin() + static_cast<std::ptrdiff_t>(begin));
}

void Peers::openViewer()
{
    if (m_places.page == 0 || m_viewers.size() >= mostViewers || below(10) != 0)
        return;
    auto viewer = std::make_unique<Viewer>();
    viewer->ticksLeft = static_cast<int>(1 + below(6 * ticksPerSecond));
    viewer->socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1/stream").arg(m_places.page)));
    m_viewers.push_back(std::move(viewer));
    ++m_connections;
}

void Peers::act(Viewer& viewer)
{
    if (viewer.socket.state() != QAbstractSocket::ConnectedState || below(20) != 0)
        return;
    const double fromHz = 95e6 + below(10'000'000);
    switch (below(6)) {
    case 0:
        viewer.socket.sendTextMessage(
            QStringLiteral(R"({"command":"addRange","kind":"%1","fromHz":%2,"toHz":%3})")
                .arg(below(2) == 0 ? QLatin1String("suppress") : QLatin1String("blanking"))
                .arg(fromHz, 0, 'f', 0)
                .arg(fromHz + 50'000, 0, 'f', 0));
        return;
    case 1:
        viewer.socket.sendTextMessage(
            QStringLiteral(R"({"command":"subscribe","maxPerSecond":%1})").arg(1 + below(60)));
        return;
    case 2:
        viewer.socket.sendTextMessage(QStringLiteral(R"({"command":"resetHolds"})"));
        return;
    case 3:
        viewer.socket.sendTextMessage(
            QStringLiteral(R"({"command":"removeRange","kind":"suppress","id":1})"));
        return;
    case 4:
        viewer.socket.sendTextMessage(QStringLiteral("no command"));
        return;
    default:
        viewer.socket.abort();
    }
}

int runPeers(const Places& places, unsigned seed)
{
    Peers peers{places, seed};
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] { peers.tick(); });
    std::string line;
    QSocketNotifier input{STDIN_FILENO, QSocketNotifier::Read};
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        char letter = 0;
        if (::read(STDIN_FILENO, &letter, 1) != 1)
            return QCoreApplication::quit();
        if (letter != '\n') {
            line += letter;
            return;
        }
        if (line == "go") {
            timer.start(1'000 / ticksPerSecond);
        } else if (line == "rest") {
            timer.stop();
            peers.leave();
            fmt::print("resting\n");
            std::fflush(stdout);
        }
        line.clear();
    });
    QCoreApplication::exec();
    peers.leave();
    fmt::print(stderr, "peers: {} connections, {:.1f} MB of the mirror read, {} times no whole datagram\n",
               peers.connections(), static_cast<double>(peers.mirrored()) / 1e6, peers.misframed());
    return peers.misframed() == 0 ? 0 : 1;
}

} // namespace soak

// SPDX-License-Identifier: MIT
// Peers that die without a word. Two hosts in network name spaces, one of which vanishes.
#include "devicecontrol/vk410protocol/peerwatch.h"
#include "devicecontrol/vk410protocol/tcpreader.h"
#include "support/tcp_receiver.h"
#include <QElapsedTimer>
#include <QTimer>
#include <arpa/inet.h>
#include <array>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using support::numbered;
using support::waitUntil;
using wire::Bytes;

namespace {

class CutObserver : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport& /*report*/) override {}
    void AttributeDone(const AttributeReport& /*report*/) override {}
    void AttributeNotAccepted(const char* /*reason*/) override {}
    void StreamBroken(quint32 /*claimedLength*/) override {}
    void MirrorClientCut(qint64 waiting) override { cut.push_back(waiting); }
    std::vector<qint64> cut;
};

int option(const QTcpSocket& socket, int level, int name)
{
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(::getsockopt(static_cast<int>(socket.socketDescriptor()), level, name, &value, &size), 0);
    return value;
}

TEST(PeerWatch, AsksAfterASilentPeerWithinSeconds)
{
    support::TcpReceiver receiver;
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, receiver.port());
    ASSERT_TRUE(socket.waitForConnected());
    peerwatch::watch(socket);
    EXPECT_EQ(option(socket, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPIDLE), 2);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPINTVL), 1);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_KEEPCNT), 3);
    EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_USER_TIMEOUT), 0); // would cut a peer that only pauses
}

TEST(PeerWatch, LeavesASocketWithoutAConnectionAlone)
{
    QTcpSocket socket;
    peerwatch::watch(socket);
    EXPECT_FALSE(peerwatch::isDead(socket));
}

TEST(PeerWatch, APeerThatAnswersIsNotDead)
{
    support::TcpReceiver receiver;
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, receiver.port());
    ASSERT_TRUE(socket.waitForConnected());
    EXPECT_FALSE(peerwatch::isDead(socket));
}

void run(const std::string& command)
{
    if (std::system((command + " 2>/dev/null").c_str()) != 0)
        throw std::runtime_error{"failed: " + command};
}

/// The other end of the cable: a thread that lives in a name space of its own and does what it is told.
class OtherHost {
public:
    OtherHost()
    {
        std::promise<pid_t> ready;
        std::future<pid_t> id = ready.get_future();
        m_thread = std::thread{[this, &ready] {
            if (::unshare(CLONE_NEWNET) != 0) {
                ready.set_value(-1);
                return;
            }
            ready.set_value(::gettid());
            for (std::packaged_task<void()> task; (task = next()).valid();)
                task();
        }};
        m_id = id.get();
    }
    ~OtherHost()
    {
        post(std::packaged_task<void()>{});
        m_thread.join();
    }
    OtherHost(const OtherHost&) = delete;
    OtherHost& operator=(const OtherHost&) = delete;

    [[nodiscard]] pid_t id() const { return m_id; }

    /// Runs `work` there and waits for it; rethrows what it throws.
    void in(const std::function<void()>& work)
    {
        std::packaged_task<void()> task{work};
        std::future<void> done = task.get_future();
        post(std::move(task));
        done.get();
    }

private:
    void post(std::packaged_task<void()> task)
    {
        const std::lock_guard lock{m_mutex};
        m_task = std::move(task);
        m_hasTask = true;
        m_changed.notify_one();
    }
    std::packaged_task<void()> next()
    {
        std::unique_lock lock{m_mutex};
        m_changed.wait(lock, [this] { return m_hasTask; });
        m_hasTask = false;
        return std::move(m_task);
    }
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::packaged_task<void()> m_task;
    bool m_hasTask = false;
    pid_t m_id = -1;
    std::thread m_thread;
};

sockaddr_in place(const char* address, std::uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    ::inet_pton(AF_INET, address, &result.sin_addr);
    return result;
}

/// This process in one name space, the other host in another, and the cable. Each test is a process of its
/// own.
class DeadPeer : public testing::Test {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0 || ::unshare(CLONE_NEWNET) != 0)
            GTEST_SKIP() << "needs the right to make network name spaces";
        other = std::make_unique<OtherHost>();
        ASSERT_GT(other->id(), 0);
        try {
            run("ip link set lo up");
            run("ip link add here type veth peer name there netns " + std::to_string(other->id()));
            run("ip address add 10.9.8.1/24 dev here");
            run("ip link set here up");
            other->in([] {
                run("ip address add 10.9.8.2/24 dev there");
                run("ip link set there address 02:00:00:00:00:02");
                run("ip link set there up");
            });
            // As behind a router: nobody here learns from missing address answers that the other one is gone.
            run("ip neighbour replace 10.9.8.2 lladdr 02:00:00:00:00:02 nud permanent dev here");
        } catch (const std::exception& failure) {
            GTEST_SKIP() << "no cable between name spaces here: " << failure.what();
        }
    }
    /// The other host is not there any more, but the way to it is: nothing but silence tells.
    void otherHostDies()
    {
        other->in([] { run("ip address delete 10.9.8.2/24 dev there"); });
    }

    std::unique_ptr<OtherHost> other;
};

TEST_F(DeadPeer, AReceiverThatDiesWithoutAWordBreaksTheConnectionWithinTenSeconds)
{
    int listener = -1;
    other->in([&] {
        listener = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in at = place("10.9.8.2", 5555);
        ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
        ASSERT_EQ(::listen(listener, 1), 0);
    });
    QObject parent;
    TcpReader reader{"10.9.8.2", 5555, &parent};
    auto* const socket = reader.findChild<QTcpSocket*>();
    ASSERT_EQ(socket->state(), QAbstractSocket::ConnectedState);
    int connection = -1;
    other->in([&] {
        connection = ::accept(listener, nullptr, nullptr);
        const Bytes one = numbered(1, 40);
        ASSERT_EQ(::send(connection, one.data(), one.size(), 0), 40);
    });
    ASSERT_TRUE(waitUntil([&] { return socket->bytesAvailable() == 0; }));
    bool broken = false;
    QObject::connect(socket, &QAbstractSocket::disconnected, [&] { broken = true; });
    otherHostDies();
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(waitUntil([&] { return broken; }, 10'000));
    EXPECT_GT(timer.elapsed(), 1'000);
    std::printf("noticed after %lld ms\n", static_cast<long long>(timer.elapsed()));
    ::close(connection);
    ::close(listener);
}

TEST_F(DeadPeer, AMirrorClientThatDiesWithoutAWordIsForgottenAndTheStreamGoesOn)
{
    support::TcpReceiver receiver;
    QObject parent;
    TcpReader reader{"127.0.0.1", receiver.port(), &parent};
    CutObserver observer;
    reader.SetMassDataObserver(&observer);
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    const std::uint16_t port = probe.serverPort();
    ASSERT_TRUE(reader.StartMassDataMirror("10.9.8.1", port));
    int client = -1;
    other->in([&] {
        client = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in at = place("10.9.8.1", port);
        ASSERT_EQ(::connect(client, reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
    });
    ASSERT_TRUE(waitUntil([&] { return reader.MirrorClientCount() == 1; }));
    otherHostDies();
    QElapsedTimer timer;
    timer.start();
    // A thin stream: bytes are under way all the time, so that keep-alive has nothing to ask, and so few that
    // none waits in the process.
    std::size_t sent = 0;
    QTimer stream;
    QObject::connect(&stream, &QTimer::timeout,
                     [&] { receiver.send(numbered(static_cast<unsigned>(++sent), 100)); });
    stream.start(100);
    ASSERT_TRUE(waitUntil([&] { return reader.MirrorClientCount() == 0; }, 40'000));
    std::printf("noticed after %lld ms\n", static_cast<long long>(timer.elapsed()));
    EXPECT_GT(timer.elapsed(), 9'000); // a peer that is gone for a moment is not dead
    EXPECT_LT(timer.elapsed(), 30'000);
    EXPECT_EQ(observer.cut.size(), 1U);
    ::close(client);
}

} // namespace

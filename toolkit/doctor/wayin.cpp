// SPDX-License-Identifier: MIT
#include "toolkit/doctor/wayin.h"
#include "toolkit/doctor/portowner.h"
#include "toolkit/receiver/udpsocket.h"
#include "toolkit/receiver/udpsource.h"
#include "toolkit/recording/recording.h"
#include <QHostInfo>
#include <QNetworkInterface>
#include <QTcpSocket>
#include <cerrno>
#include <fmt/format.h>
#include <fstream>
#include <optional>

namespace doctor {

namespace {

std::string text(const QHostAddress& address)
{
    return address.toString().toStdString();
}

// An interface that is up and takes groups, other than loopback.
std::optional<std::string> multicastInterface()
{
    for (const QNetworkInterface& each : QNetworkInterface::allInterfaces()) {
        const auto flags = each.flags();
        if (flags.testFlag(QNetworkInterface::IsUp) && flags.testFlag(QNetworkInterface::CanMulticast) &&
            !flags.testFlag(QNetworkInterface::IsLoopBack))
            return each.humanReadableName().toStdString();
    }
    return std::nullopt;
}

Finding checkInterface(const receiver::SourceSpec& spec)
{
    Finding finding{"interface", Outcome::Fine, "listens on all of this machine's addresses", {}};
    if (!spec.address.isNull()) {
        const QNetworkInterface* owner = nullptr;
        const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
        for (const QNetworkInterface& each : interfaces) {
            for (const QNetworkAddressEntry& entry : each.addressEntries())
                owner = entry.ip() == spec.address ? &each : owner;
        }
        // All of 127/8 is this machine.
        if (!owner && !spec.address.isLoopback())
            return {"interface", Outcome::Problem,
                    fmt::format("{} is no address of this machine", text(spec.address)),
                    "'ip address' lists its addresses; udp://:PORT listens on all of them"};
        finding.found = fmt::format("{} is {}", text(spec.address),
                                    owner ? owner->humanReadableName().toStdString() : "loopback");
    } else if (!spec.group.isNull()) {
        const std::optional<std::string> name = multicastInterface();
        if (!name)
            return {"interface", Outcome::Problem, "no interface takes multicast groups",
                    "'ip link set dev NAME up multicast on' as root, or name its address: "
                    "udp://group@address:port"};
        finding.found = fmt::format("{} takes multicast groups; the system chooses", *name);
    }
    return finding;
}

long largestBuffer()
{
    std::ifstream file{"/proc/sys/net/core/rmem_max"};
    long bytes = 0;
    file >> bytes;
    return bytes;
}

Finding checkBuffer(const receiver::UdpSocket& socket)
{
    constexpr int wanted = receiver::UdpSource::defaultBufferBytes;
    const int granted = socket.bufferGranted();
    Finding finding{socketBuffer,
                    Outcome::Fine,
                    fmt::format("{} kB granted of {} kB, net.core.rmem_max is {} kB", granted / 1024,
                                wanted / 1024, largestBuffer() / 1024),
                    {}};
    if (granted < wanted) {
        finding.outcome = Outcome::Problem;
        finding.fix = fmt::format(
            "sudo sysctl -w net.core.rmem_max={}; bursts and pauses lose packets otherwise", wanted);
    }
    return finding;
}

std::string fixOfConnect(QAbstractSocket::SocketError error, const receiver::SourceSpec& spec)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return fmt::format(
            "the machine is there, but nothing listens on TCP port {}: is the receiver's mass-data "
            "stream switched on, and on that port?",
            spec.port);
    case QAbstractSocket::SocketTimeoutError:
        return fmt::format(
            "nobody answers: is {} the right address ('ping -c 3 {}'), and does a firewall drop "
            "TCP port {}?",
            spec.host, spec.host, spec.port);
    default:
        return fmt::format("'ip route get {}' shows whether there is a way to it", spec.host);
    }
}

Finding portFinding(const receiver::SourceSpec& spec, const receiver::SocketFailure& failure)
{
    const std::string owner = failure.error == EADDRINUSE ? udpPortOwner(spec.port) : std::string{};
    if (owner.empty())
        return {"port", Outcome::Problem, failure.found, failure.advice};
    return {"port", Outcome::Problem, fmt::format("{} has UDP port {}", owner, spec.port),
            fmt::format("stop {}, or let the receiver send to another port as well", owner)};
}

} // namespace

std::vector<Finding> checkUdp(const receiver::SourceSpec& spec)
{
    std::vector<Finding> findings{checkInterface(spec)};
    if (findings.back().outcome == Outcome::Problem)
        return findings;
    try {
        const receiver::UdpSocket socket{spec, receiver::UdpSource::defaultBufferBytes};
        findings.push_back(
            {"port", Outcome::Fine, fmt::format("UDP port {} can be listened to", socket.local().port), {}});
        if (!spec.group.isNull())
            findings.push_back({"group", Outcome::Fine, fmt::format("{} was joined", text(spec.group)), {}});
        findings.push_back(checkBuffer(socket));
    } catch (const receiver::SocketFailure& failure) {
        findings.push_back(portFinding(spec, failure));
    }
    return findings;
}

std::vector<Finding> checkTcp(const receiver::SourceSpec& spec, double seconds)
{
    const QHostInfo info = QHostInfo::fromName(QString::fromStdString(spec.host));
    if (info.addresses().isEmpty())
        return {{"host", Outcome::Problem,
                 fmt::format("'{}' is no host that can be found: {}", spec.host,
                             info.errorString().toStdString()),
                 fmt::format("'getent hosts {}' asks again; tcp://192.0.2.7:{} takes an address", spec.host,
                             spec.port)}};
    std::vector<Finding> findings{
        {"host", Outcome::Fine, fmt::format("{} is {}", spec.host, text(info.addresses().first())), {}}};
    QTcpSocket socket;
    socket.connectToHost(info.addresses().first(), spec.port);
    if (socket.waitForConnected(static_cast<int>(seconds * 1e3)))
        findings.push_back({"connection", Outcome::Fine, fmt::format("TCP port {} answers", spec.port), {}});
    else
        findings.push_back({"connection", Outcome::Problem,
                            fmt::format("TCP port {}: {}", spec.port, socket.errorString().toStdString()),
                            fixOfConnect(socket.error(), spec)});
    return findings;
}

std::vector<Finding> checkRecording(const receiver::SourceSpec& spec)
{
    try {
        (void)recording::openRecording(spec.path, {});
        return {{"file", Outcome::Fine, spec.path + " is a recording", {}}};
    } catch (const std::exception& failure) {
        return {{"file", Outcome::Problem, failure.what(),
                 "name a pcap or pcapng capture, or a file of datagrams back to back"}};
    }
}

} // namespace doctor

// SPDX-License-Identifier: MIT
#include "toolkit/receiver/sourcespec.h"
#include <charconv>
#include <fmt/format.h>
#include <optional>
#include <string_view>

namespace receiver {

namespace {

constexpr std::string_view udpForm = "udp://[group@][address]:port, for example udp://:5555";
constexpr std::string_view tcpForm = "tcp://host:port, for example tcp://192.0.2.7:5555";

[[noreturn]] void refuse(const std::string& text, std::string_view form, std::string_view what)
{
    throw BadSource{fmt::format("'{}': expected {}; {}", text, form, what)};
}

std::optional<std::uint16_t> portIn(std::string_view text)
{
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return port;
}

struct HostAndPort {
    std::string_view host; // without the brackets of an IPv6 address
    std::uint16_t port;
};

HostAndPort split(const std::string& text, std::string_view rest, std::string_view form,
                  std::uint16_t lowestPort = 1)
{
    const std::size_t colon = rest.rfind(':');
    if (colon == std::string_view::npos)
        refuse(text, form, "the port is missing");
    if (colon + 1 == rest.size())
        refuse(text, form, "the port is missing");
    const std::optional<std::uint16_t> port = portIn(rest.substr(colon + 1));
    if (!port || *port < lowestPort)
        refuse(text, form, fmt::format("'{}' is no port ({} to 65535)", rest.substr(colon + 1), lowestPort));
    std::string_view host = rest.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    return {host, *port};
}

QHostAddress addressIn(const std::string& text, std::string_view name, std::string_view form)
{
    const QHostAddress address(QString::fromUtf8(name.data(), static_cast<int>(name.size())));
    if (address.isNull())
        refuse(text, form, fmt::format("'{}' is no IP address", name));
    return address;
}

SourceSpec udpSource(const std::string& text, std::string_view rest)
{
    SourceSpec spec;
    spec.kind = SourceSpec::Kind::Udp;
    const std::size_t at = rest.find('@');
    if (at != std::string_view::npos) {
        if (at == 0)
            refuse(text, udpForm, "the group is missing");
        spec.group = addressIn(text, rest.substr(0, at), udpForm);
        if (!spec.group.isMulticast())
            refuse(text, udpForm, fmt::format("'{}' is no multicast group", rest.substr(0, at)));
        rest.remove_prefix(at + 1);
    }
    const HostAndPort place = split(text, rest, udpForm);
    spec.port = place.port;
    if (!place.host.empty())
        spec.address = addressIn(text, place.host, udpForm);
    return spec;
}

SourceSpec tcpSource(const std::string& text, std::string_view rest)
{
    const HostAndPort place = split(text, rest, tcpForm);
    if (place.host.empty())
        refuse(text, tcpForm, "the host is missing");
    SourceSpec spec;
    spec.kind = SourceSpec::Kind::Tcp;
    spec.host = place.host;
    spec.port = place.port;
    return spec;
}

} // namespace

SourceSpec parseSource(const std::string& text)
{
    const std::string_view view = text;
    if (view.empty())
        throw BadSource{
            "expected udp://..., tcp://..., sim:scene or the path of a recording, found an empty text"};
    if (view.starts_with("udp://"))
        return udpSource(text, view.substr(6));
    if (view.starts_with("tcp://"))
        return tcpSource(text, view.substr(6));
    SourceSpec spec;
    if (view.starts_with("sim:")) {
        spec.kind = SourceSpec::Kind::Simulation;
        spec.path = view.substr(4);
        if (spec.path.empty())
            refuse(text, "sim:scene, for example sim:band", "the scene is missing");
        return spec;
    }
    if (view.find("://") != std::string_view::npos)
        refuse(text, "udp://..., tcp://..., sim:scene or the path of a recording",
               "this kind of address is not known");
    spec.path = text;
    return spec;
}

ListenSpec parseListen(const std::string& text, std::uint16_t lowestPort)
{
    constexpr std::string_view form = "address:port, for example 127.0.0.1:7000";
    const HostAndPort place = split(text, text, form, lowestPort);
    const QHostAddress address =
        place.host.empty() ? QHostAddress(QHostAddress::LocalHost) : addressIn(text, place.host, form);
    return {address, place.port};
}

} // namespace receiver

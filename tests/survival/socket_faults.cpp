// SPDX-License-Identifier: MIT
#include "socket_faults.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using socketfaults::Call;

std::optional<socketfaults::Fault> armed;
std::vector<int> watched;
bool hasHappened = false;

// The fault that happens to this call, if one does.
const socketfaults::Fault* faultOf(Call call, int descriptor)
{
    if (!armed || hasHappened || armed->call != call)
        return nullptr;
    const bool counts =
        watched.empty() || std::find(watched.begin(), watched.end(), descriptor) != watched.end();
    if ((!counts && call != Call::Poll) || --armed->which != 0)
        return nullptr;
    hasHappened = true;
    return &*armed;
}

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

// Calls the real function with a size, which is 1 where the fault is a short count.
template <typename Real>
auto counted(Call call, int descriptor, std::size_t size, const Real& real) -> decltype(real(size))
{
    const socketfaults::Fault* const fault = faultOf(call, descriptor);
    if (fault && fault->error != 0) {
        errno = fault->error;
        return -1;
    }
    return real(fault ? std::min<std::size_t>(size, 1) : size);
}

const char* textOf(Call call)
{
    switch (call) {
    case Call::Read:
        return "read";
    case Call::Recv:
        return "recv";
    case Call::Recvmmsg:
        return "recvmmsg";
    case Call::Send:
        return "send";
    case Call::Sendmsg:
        return "sendmsg";
    case Call::Write:
        return "write";
    case Call::Accept:
        return "accept";
    case Call::Connect:
        return "connect";
    case Call::Setsockopt:
        return "setsockopt";
    case Call::Poll:
        return "poll";
    }
    return "";
}

} // namespace

namespace socketfaults {

void arm(const Fault& fault, const std::vector<int>& descriptors)
{
    armed = fault;
    watched = descriptors;
    hasHappened = false;
}

bool disarm()
{
    armed.reset();
    return hasHappened;
}

std::string nameOf(const Fault& fault)
{
    const char* const error = fault.error == 0 ? "ShortCount" : ::strerrorname_np(fault.error);
    return std::string(textOf(fault.call)) + "_" + error + "_" + std::to_string(fault.which);
}

} // namespace socketfaults

extern "C" {

ssize_t read(int descriptor, void* to, size_t size)
{
    static auto* const real = next<decltype(read)>("read");
    return counted(Call::Read, descriptor, size, [&](size_t some) { return real(descriptor, to, some); });
}

ssize_t write(int descriptor, const void* from, size_t size)
{
    static auto* const real = next<decltype(write)>("write");
    return counted(Call::Write, descriptor, size, [&](size_t some) { return real(descriptor, from, some); });
}

ssize_t recv(int descriptor, void* to, size_t size, int flags)
{
    static auto* const real = next<decltype(recv)>("recv");
    return counted(Call::Recv, descriptor, size,
                   [&](size_t some) { return real(descriptor, to, some, flags); });
}

ssize_t send(int descriptor, const void* from, size_t size, int flags)
{
    static auto* const real = next<decltype(send)>("send");
    return counted(Call::Send, descriptor, size,
                   [&](size_t some) { return real(descriptor, from, some, flags); });
}

ssize_t sendmsg(int descriptor, const msghdr* message, int flags)
{
    static auto* const real = next<decltype(sendmsg)>("sendmsg");
    const socketfaults::Fault* const fault = faultOf(Call::Sendmsg, descriptor);
    if (!fault)
        return real(descriptor, message, flags);
    if (fault->error != 0) {
        errno = fault->error;
        return -1;
    }
    iovec first{message->msg_iov[0].iov_base, 1};
    msghdr shorter = *message;
    shorter.msg_iov = &first;
    shorter.msg_iovlen = 1;
    return real(descriptor, &shorter, flags);
}

int recvmmsg(int descriptor, mmsghdr* messages, unsigned int count, int flags, timespec* timeout)
{
    static auto* const real = next<decltype(recvmmsg)>("recvmmsg");
    return counted(Call::Recvmmsg, descriptor, count, [&](size_t some) {
        return real(descriptor, messages, static_cast<unsigned int>(some), flags, timeout);
    });
}

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags)
{
    static auto* const real = next<decltype(accept4)>("accept4");
    return counted(Call::Accept, descriptor, 1,
                   [&](size_t) { return real(descriptor, address, size, flags); });
}

int connect(int descriptor, const sockaddr* address, socklen_t size)
{
    static auto* const real = next<decltype(connect)>("connect");
    return counted(Call::Connect, descriptor, 1, [&](size_t) { return real(descriptor, address, size); });
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) noexcept
{
    static auto* const real = next<decltype(setsockopt)>("setsockopt");
    return counted(Call::Setsockopt, descriptor, 1,
                   [&](size_t) { return real(descriptor, level, option, value, size); });
}

int poll(pollfd* entries, nfds_t count, int timeout)
{
    static auto* const real = next<decltype(poll)>("poll");
    return counted(Call::Poll, -1, 1, [&](size_t) { return real(entries, count, timeout); });
}
}

// SPDX-License-Identifier: MIT
#pragma once
// Lets one system call on a socket fail, or move less than it could. Whoever links this has the calls of the
// C library, Qt's too, go through it.
#include <string>
#include <vector>

namespace socketfaults {

enum class Call { Read, Recv, Recvmmsg, Send, Sendmsg, Write, Accept, Connect, Setsockopt, Poll };

/// What happens to one call.
struct Fault {
    Call call;
    int error;     // errno; 0: it succeeds, but moves one byte, or takes one packet, only
    int which = 1; // of the calls from now on, counted from 1
};

/// From now on; `descriptors`: those of which calls count, none: all. Poll has no descriptor.
void arm(const Fault& fault, const std::vector<int>& descriptors);

/// No call fails any more. Result: whether one did.
bool disarm();

[[nodiscard]] std::string nameOf(const Fault& fault);

} // namespace socketfaults

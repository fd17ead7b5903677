// SPDX-License-Identifier: MIT
#include "toolkit/recording/writefailure.h"
#include <cerrno>
#include <cstring>

namespace recording {

std::string writeFailureText(int error)
{
    std::string text = std::strerror(error);
    switch (error) {
    case ENOSPC:
    case EDQUOT:
        return text + "; is the disk full?";
    case EPIPE:
        return text + "; who read it has gone";
    case EFBIG:
        return text + "; 'ulimit -f' shows how large a file may be";
    default:
        return text;
    }
}

} // namespace recording

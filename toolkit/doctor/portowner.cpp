// SPDX-License-Identifier: MIT
#include "toolkit/doctor/portowner.h"
#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <sstream>

namespace doctor {

namespace {

namespace fs = std::filesystem;

// Number of the socket that has the port, by a table of the kernel; empty: none.
std::string inodeIn(const char* table, std::uint16_t port)
{
    constexpr int cellOfAddress = 1;
    constexpr int cellOfInode = 9;
    std::ifstream file{table};
    std::string line;
    std::getline(file, line); // headings
    const std::string ending = fmt::format(":{:04X}", port);
    while (std::getline(file, line)) {
        std::istringstream cells{line};
        std::string cell;
        std::string address;
        for (int i = 0; i <= cellOfInode && cells >> cell; ++i)
            address = i == cellOfAddress ? cell : address;
        if (address.ends_with(ending))
            return cell;
    }
    return {};
}

bool hasSocket(const fs::path& process, const std::string& inode)
{
    std::error_code error;
    const std::string wanted = "socket:[" + inode + "]";
    // Other users' processes cannot be looked into; that is no error here.
    for (fs::directory_iterator each{process / "fd", error}, end; !error && each != end;
         each.increment(error)) {
        std::error_code gone;
        if (fs::read_symlink(each->path(), gone).string() == wanted)
            return true;
    }
    return false;
}

} // namespace

std::string udpPortOwner(std::uint16_t port)
{
    std::string inode;
    for (const char* const table : {"/proc/net/udp", "/proc/net/udp6"}) {
        if (inode.empty())
            inode = inodeIn(table, port);
    }
    if (inode.empty())
        return {};
    std::error_code error;
    for (fs::directory_iterator each{"/proc", error}, end; !error && each != end; each.increment(error)) {
        const std::string name = each->path().filename().string();
        const bool isProcess =
            std::ranges::all_of(name, [](unsigned char c) { return std::isdigit(c) != 0; });
        if (!isProcess || !hasSocket(each->path(), inode))
            continue;
        std::ifstream file{each->path() / "comm"};
        std::string program;
        std::getline(file, program);
        return fmt::format("process {} ({})", name, program);
    }
    return "somebody else's process";
}

} // namespace doctor

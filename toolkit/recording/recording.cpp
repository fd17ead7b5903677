// SPDX-License-Identifier: MIT
#include "toolkit/recording/recording.h"
#include "toolkit/recording/capturesource.h"
#include "toolkit/recording/rawstream.h"
#include "wire/view.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace recording {
namespace {

// The first four bytes of a capture, as they lie in the file.
constexpr std::array<std::uint32_t, 5> captureMagics{
    0xA1B2C3D4, 0xD4C3B2A1, // pcap, microseconds
    0xA1B23C4D, 0x4D3CB2A1, // pcap, nanoseconds
    0x0A0D0D0A,             // pcapng: the same in both byte orders
};

bool isCapture(std::FILE* file)
{
    std::array<unsigned char, 4> first{};
    const bool isLongEnough = std::fread(first.data(), 1, first.size(), file) == first.size();
    std::rewind(file);
    const auto magic = wire::load<std::uint32_t>(first.data(), wire::ByteOrder::Big);
    return isLongEnough &&
           std::find(captureMagics.begin(), captureMagics.end(), magic) != captureMagics.end();
}

FilePtr openFile(const std::string& path)
{
    // Not blocking: opening a pipe that nobody writes would wait forever.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        throw CannotOpen{path, std::strerror(errno), "check its name and permissions"};
    FilePtr file{::fdopen(descriptor, "rb")};
    struct stat status {};
    if (!file || ::fstat(descriptor, &status) != 0) {
        const std::string why = std::strerror(errno);
        if (!file)
            ::close(descriptor);
        throw CannotOpen{path, why, "try again"};
    }
    if (S_ISDIR(status.st_mode))
        throw CannotOpen{path, "a directory", "name one recording in it"};
    if (!S_ISREG(status.st_mode))
        throw CannotOpen{path, "no regular file", "save what it gives in a file first"};
    return file;
}

} // namespace

std::unique_ptr<DatagramSource> openRecording(const std::string& path, const Options& options)
{
    return openRecording(openFile(path), path, options);
}

std::unique_ptr<DatagramSource> openRecording(FilePtr file, const std::string& name, const Options& options)
{
    if (isCapture(file.get()))
        return std::make_unique<CaptureSource>(std::move(file), name, options);
    return std::make_unique<RawStream>(std::move(file), name);
}

} // namespace recording

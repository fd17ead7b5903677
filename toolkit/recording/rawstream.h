// SPDX-License-Identifier: MIT
#pragma once
// A file of datagrams back to back, as they come over a TCP connection.
#include "toolkit/recording/recording.h"
#include "wire/view.h"

namespace recording {

class RawStream : public DatagramSource {
public:
    RawStream(FilePtr file, std::string name);

    std::optional<Datagram> next() override;

private:
    [[nodiscard]] std::uint32_t sizeOf(wire::View header);
    [[nodiscard]] QByteArray read(wire::View header, std::uint32_t size);
    [[noreturn]] void refuse(std::uint64_t position, std::string expected, std::string found);
    [[nodiscard]] std::uint64_t fileSize() const;

    FilePtr m_file;
    std::string m_name;
    std::uint64_t m_position = 0;
    std::uint64_t m_size;
    bool m_ended = false;
};

} // namespace recording

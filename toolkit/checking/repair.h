// SPDX-License-Identifier: MIT
#pragma once
// Saves what is sound in a recording.
#include "toolkit/recording/origin.h"
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace recording {
struct Datagram;
}

namespace checking {

/// A repaired recording cannot be written, or does not read as it was written.
struct CannotRepair : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Writes datagrams into a new recording of the same form: a raw stream stays one, everything else becomes a
/// capture with the same addresses, ports and times. Until it is whole and read again it has another name,
/// and is removed where that fails. Errors: CannotRepair, recording::CannotWrite.
class Repair {
public:
    /// `in` is only compared: a recording is never written over itself, nor over any other file.
    Repair(const std::string& in, std::string out);
    Repair(const Repair&) = delete;
    Repair& operator=(const Repair&) = delete;
    ~Repair();

    void keep(const recording::Datagram& datagram);

    /// Closes the file, reads it again, compares every byte with what was kept, and gives it its name.
    /// Errors: also recording::CannotOpen.
    void finish();

    /// The name that the file has until it is whole; empty where it is no file but a device.
    [[nodiscard]] const std::string& temporaryPath() const { return m_temporary; }

    [[nodiscard]] std::uint64_t kept() const { return m_kept; }

private:
    class Target;

    [[nodiscard]] const std::string& written() const { return m_temporary.empty() ? m_out : m_temporary; }
    void readAgain() const;
    void giveName();

    std::string m_out;
    std::string m_temporary;
    std::unique_ptr<Target> m_target; // from the first datagram on, which says what form it has
    bool m_isBegun = false;           // something of it may be on the disk
    std::uint64_t m_kept = 0;
    std::uint64_t m_hash;
};

} // namespace checking

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
/// capture with the same addresses, ports and times. Errors: CannotRepair, recording::CannotWrite.
class Repair {
public:
    /// `in` is only compared: a recording is never written over itself, nor over any other file.
    Repair(const std::string& in, std::string out);
    Repair(const Repair&) = delete;
    Repair& operator=(const Repair&) = delete;
    ~Repair();

    void keep(const recording::Datagram& datagram);

    /// Closes the file, reads it again, and compares every byte with what was kept.
    /// Errors: also recording::CannotOpen.
    void finish();

    [[nodiscard]] std::uint64_t kept() const { return m_kept; }

private:
    class Target;

    std::string m_out;
    std::unique_ptr<Target> m_target; // from the first datagram on, which says what form it has
    std::uint64_t m_kept = 0;
    std::uint64_t m_hash;
};

} // namespace checking

// SPDX-License-Identifier: MIT
#pragma once
// Runs the program as a user does: in a shell, in some folder.
#include <string>
#include <vector>

namespace support {

struct Ran {
    int exitCode = -1;
    std::string out;  // stdout
    std::string err;  // stderr
    long peakKiB = 0; // memory of the largest process

    [[nodiscard]] std::vector<std::string> outLines() const;
};

/// Runs a shell command in `folder`; `vk410` is the program of this build.
[[nodiscard]] Ran run(const std::string& command, const std::string& folder);

[[nodiscard]] std::vector<std::string> linesOf(const std::string& text);

/// A folder of its own, gone when the test is.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::string& path() const { return m_path; }
    void write(const std::string& name, const std::vector<unsigned char>& bytes) const;

private:
    std::string m_path;
};

[[nodiscard]] std::string contentOf(const std::string& path);

} // namespace support

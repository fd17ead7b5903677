// SPDX-License-Identifier: MIT
#include "tools/vk410/run_program.h"
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {

std::vector<std::string> linesOf(const std::string& text)
{
    std::istringstream all{text};
    std::vector<std::string> lines;
    for (std::string line; std::getline(all, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> Ran::outLines() const
{
    return linesOf(out);
}

std::string contentOf(const std::string& path)
{
    std::ifstream file{path, std::ios::binary};
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

Ran run(const std::string& command, const std::string& folder)
{
    const TemporaryFolder talk;
    const std::string out = talk.path() + "/out";
    const std::string err = talk.path() + "/err";
    const std::string line = "cd '" + folder + "' && PATH='" VK410_PROGRAM_FOLDER "':\"$PATH\" && { " +
                             command + "\n} >'" + out + "' 2>'" + err + "'";
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    if (child < 0 || ::wait4(child, &status, 0, &usage) != child)
        throw std::runtime_error{"cannot run: " + command};
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(out), contentOf(err), usage.ru_maxrss};
}

TemporaryFolder::TemporaryFolder()
    : m_path(testing::TempDir() + "vk410XXXXXX")
{
    if (!::mkdtemp(m_path.data()))
        throw std::runtime_error{"no temporary folder: " + m_path};
}

TemporaryFolder::~TemporaryFolder()
{
    std::filesystem::remove_all(m_path);
}

void TemporaryFolder::write(const std::string& name, const std::vector<unsigned char>& bytes) const
{
    std::ofstream{m_path + "/" + name, std::ios::binary}.write(reinterpret_cast<const char*>(bytes.data()),
                                                               static_cast<std::streamsize>(bytes.size()));
}

} // namespace support

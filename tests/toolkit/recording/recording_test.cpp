// SPDX-License-Identifier: MIT
#include "toolkit/recording/recording.h"
#include "toolkit/support/capture_bytes.h"
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using recording::CannotOpen;
using recording::openRecording;

std::string whyNot(const std::string& path)
{
    try {
        (void)openRecording(path, {});
        return "opened";
    } catch (const CannotOpen& error) {
        return error.what();
    }
}

class OpenRecording : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "recordingXXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
        std::filesystem::permissions(m_folder, std::filesystem::perms::all);
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }
    [[nodiscard]] std::string path(const char* name) const { return (m_folder / name).string(); }

    std::filesystem::path m_folder;
};

TEST_F(OpenRecording, ReadsAFileByItsName)
{
    const wire::Bytes bytes = support::traceDatagram(1);
    std::ofstream{path("a"), std::ios::binary}.write(reinterpret_cast<const char*>(bytes.data()),
                                                     static_cast<std::streamsize>(bytes.size()));

    const auto source = openRecording(path("a"), {});

    EXPECT_TRUE(source->next().has_value());
    EXPECT_FALSE(source->next().has_value());
}

TEST_F(OpenRecording, SaysThatThereIsNoSuchFile)
{
    EXPECT_EQ(whyNot(path("missing")), path("missing") + ": expected a readable file, found No such file or "
                                                         "directory; check its name and permissions");
}

TEST_F(OpenRecording, SaysThatItIsADirectory)
{
    EXPECT_EQ(whyNot(m_folder.string()),
              m_folder.string() + ": expected a readable file, found a directory; name one recording in it");
}

TEST_F(OpenRecording, SaysThatItIsNoRegularFileAndDoesNotWait)
{
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);

    EXPECT_EQ(whyNot(path("pipe")), path("pipe") +
                                        ": expected a readable file, found no regular file; save what "
                                        "it gives in a file first");
}

TEST_F(OpenRecording, SaysThatItIsNotPermitted)
{
    std::ofstream{path("secret")} << "x";
    std::filesystem::permissions(path("secret"), std::filesystem::perms::none);
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) { // root may read everything
        ASSERT_EQ(::seteuid(65534), 0);
    }
    const std::string why = whyNot(path("secret"));
    if (isRoot) {
        ASSERT_EQ(::seteuid(0), 0);
    }

    EXPECT_EQ(why, path("secret") +
                       ": expected a readable file, found Permission denied; check its name and permissions");
}

} // namespace

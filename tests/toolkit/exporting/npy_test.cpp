// SPDX-License-Identifier: MIT
#include "toolkit/exporting/npy.h"
#include <QTemporaryDir>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <sys/stat.h>

using exporting::CannotExport;
using exporting::makeWriter;
using exporting::NpyFile;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Npy : public testing::Test {
protected:
    std::string path(const char* name) const { return folder.filePath(name).toStdString(); }
    std::string read(const char* name) const
    {
        std::ifstream file{path(name), std::ios::binary};
        return {std::istreambuf_iterator<char>{file}, {}};
    }
    std::string refusalOf(const char* name)
    {
        try {
            (void)makeWriter(exporting::What::Levels, exporting::Format::Npy, path(name));
        } catch (const CannotExport& failure) {
            return failure.what();
        }
        return "accepted";
    }

    QTemporaryDir folder;
};

TEST_F(Npy, TellsOfTheRowsSoFarWhenItIsBroughtUpToDate)
{
    NpyFile file{path("a.npy"), "'<f4'", 2, 8};
    EXPECT_THAT(read("a.npy"), StartsWith(std::string{"\x93NUMPY\x01\x00", 8}));
    EXPECT_THAT(read("a.npy"), HasSubstr("{'descr': '<f4', 'fortran_order': False, 'shape': (0, 2), }"));
    const std::size_t empty = read("a.npy").size();
    EXPECT_EQ(empty % 64, 0U);

    file.append(std::string(16, 'x'));
    file.bringUpToDate();

    EXPECT_THAT(read("a.npy"), HasSubstr("'shape': (2, 2), }"));
    EXPECT_EQ(read("a.npy").size(), empty + 16);

    file.append(std::string(8, 'y'));
    file.bringUpToDate();

    EXPECT_THAT(read("a.npy"), HasSubstr("'shape': (3, 2), }"));
    EXPECT_EQ(read("a.npy").substr(empty), std::string(16, 'x') + std::string(8, 'y'));
}

TEST_F(Npy, TellsOfManyRowsWithoutBeingAsked)
{
    NpyFile file{path("a.npy"), "'<f8'", 0, 8};

    file.append(std::string(8 * 256, 'x'));

    EXPECT_THAT(read("a.npy"), HasSubstr("'shape': (256,), }"));
}

TEST_F(Npy, IsNotMixedWithPartsOfAnEarlierExport)
{
    std::ofstream{path("a-0003.time.npy")} << "earlier";
    std::ofstream{path("a.npy")} << "mine";

    EXPECT_THAT(refusalOf("a.npy"),
                HasSubstr("a-0003.time.npy: expected nothing of an earlier export beside"));
    EXPECT_EQ(read("a.npy"), "mine");
    EXPECT_EQ(refusalOf("b.npy"), "accepted");
}

TEST_F(Npy, RefusesAPipeWithoutWaitingForItsReader)
{
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);

    EXPECT_THAT(refusalOf("pipe"), HasSubstr("expected a file for NumPy"));
}

} // namespace

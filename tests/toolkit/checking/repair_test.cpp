// SPDX-License-Identifier: MIT
#include "toolkit/checking/repair.h"
#include "toolkit/recording/recording.h"
#include "wire/datagramwriter.h"
#include <QDir>
#include <QTemporaryDir>
#include <fstream>
#include <gmock/gmock.h>

using checking::CannotRepair;
using checking::Repair;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

recording::Datagram datagram()
{
    const wire::Bytes bytes = wire::DatagramWriter{}.sequence(7).build();
    recording::Datagram result;
    result.bytes = recording::withSpareRoom(bytes.data(), bytes.size());
    return result;
}

class Repairs : public testing::Test {
protected:
    std::string path(const char* name) const { return folder.filePath(name).toStdString(); }
    QStringList files() const { return QDir{folder.path()}.entryList(QDir::Files); }

    QTemporaryDir folder;
};

TEST_F(Repairs, HaveTheirNameWhenTheyAreWhole)
{
    Repair repair{path("in.bin"), path("out.bin")};

    repair.keep(datagram());
    EXPECT_THAT(files(), ElementsAre("out.bin.part"));
    repair.finish();

    EXPECT_THAT(files(), ElementsAre("out.bin"));
    EXPECT_EQ(repair.kept(), 1U);
}

TEST_F(Repairs, ThatAreNotFinishedLeaveNothing)
{
    {
        Repair repair{path("in.bin"), path("out.bin")};
        repair.keep(datagram());
    }
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(Repairs, ThatKeepNothingWriteNothing)
{
    {
        Repair repair{path("in.bin"), path("out.bin")};
        EXPECT_THROW(repair.finish(), CannotRepair);
    }
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(Repairs, DoNotTakeANameThatSomebodyTookMeanwhile)
{
    {
        Repair repair{path("in.bin"), path("out.bin")};
        repair.keep(datagram());
        std::ofstream{path("out.bin")} << "theirs";
        EXPECT_THROW(repair.finish(), CannotRepair);
    }
    EXPECT_THAT(files(), ElementsAre("out.bin"));
    std::ifstream file{path("out.bin")};
    std::string content;
    file >> content;
    EXPECT_EQ(content, "theirs");
}

} // namespace

// SPDX-License-Identifier: MIT
#include "toolkit/settings/settingsfile.h"
#include <QTemporaryDir>
#include <fstream>
#include <gmock/gmock.h>

using settings::BadSettings;
using settings::readSettings;
using settings::Setting;
using settings::Settings;
using testing::EndsWith;
using testing::IsEmpty;

namespace {

class SettingsFile : public testing::Test {
protected:
    Settings read(const char* content)
    {
        std::ofstream{path} << content;
        return readSettings(path);
    }
    std::string refusalOf(const char* content)
    {
        try {
            (void)read(content);
        } catch (const BadSettings& bad) {
            return bad.what();
        }
        return "accepted";
    }

    QTemporaryDir folder;
    std::string path = folder.filePath("my.toml").toStdString();
};

TEST_F(SettingsFile, KeepsEachValueWithItsKindAndLine)
{
    const Settings settings =
        read("# mine\n[monitor]\nsource = \"a.pcap\"\nrate = 2.5\nheadless = true\n"
             "scan-range = [\"1:1M-2M/1k\", \"2:3M-4M/1k\"]\n\n[inspect]\nport = 5555\n");
    const auto& monitor = settings.at("monitor");

    EXPECT_EQ(monitor.at("source").value, "a.pcap");
    EXPECT_EQ(monitor.at("source").kind, Setting::Kind::Text);
    EXPECT_EQ(monitor.at("source").line, 3U);
    EXPECT_EQ(monitor.at("rate").value, "2.5");
    EXPECT_EQ(monitor.at("rate").kind, Setting::Kind::Number);
    EXPECT_EQ(monitor.at("headless").value, "true");
    EXPECT_EQ(monitor.at("headless").kind, Setting::Kind::Flag);
    EXPECT_EQ(monitor.at("scan-range").value, "1:1M-2M/1k,2:3M-4M/1k");
    EXPECT_EQ(monitor.at("scan-range").kind, Setting::Kind::List);
    EXPECT_EQ(settings.at("inspect").at("port").value, "5555");
    EXPECT_EQ(settings.at("inspect").at("port").line, 9U);
}

TEST_F(SettingsFile, TellsTextsFromNumbersByTheirQuotes)
{
    const Settings settings = read("[monitor]\nrecord = \"5\"\nmetrics = 5\n");

    EXPECT_EQ(settings.at("monitor").at("record").kind, Setting::Kind::Text);
    EXPECT_EQ(settings.at("monitor").at("metrics").kind, Setting::Kind::Number);
}

TEST_F(SettingsFile, MayBeEmpty)
{
    EXPECT_THAT(read(""), IsEmpty());
}

TEST_F(SettingsFile, NamesTheLineOfWhatItCannotTake)
{
    EXPECT_THAT(
        refusalOf("[monitor]\n\nrate = 12:00:00\n"),
        EndsWith("my.toml:3: [monitor] rate: expected a text, a number, true, false, or a list of them, "
                 "found something else"));
    EXPECT_THAT(
        refusalOf("\nrate = 2\n"),
        EndsWith(
            "my.toml:2: expected a table of a verb, for example [monitor], found 'rate' outside of any"));
}

} // namespace

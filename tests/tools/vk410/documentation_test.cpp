// SPDX-License-Identifier: MIT
// What --help says is true, and the samples and clients of the documents are what they claim to be;
// tests/docs runs the documents' own examples.
#include "tools/vk410/run_program.h"
#include "tools/vk410/samples.h"
#include <gmock/gmock.h>

namespace {

using namespace support;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const std::string docs = VK410_DOCS;
const std::string samples = docs + "/samples";

std::string helpOf(const std::string& verb)
{
    const Ran ran = run("vk410 " + verb + " --help", samples);
    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_EQ(ran.err, "");
    return ran.out;
}

TEST(Help, OfTheProgramNamesItsVerbs)
{
    EXPECT_THAT(helpOf(""), testing::HasSubstr("\n  inspect "));
}

TEST(Help, OfAVerbFitsAScreen)
{
    for (const char* const verb :
         {"check", "demo", "doctor", "export", "inspect", "monitor", "record", "replay", "simulate"}) {
        const std::vector<std::string> lines = linesOf(helpOf(verb));
        EXPECT_LE(lines.size(), 24U) << verb;
        for (const std::string& line : lines)
            EXPECT_LE(line.size(), 120U) << line;
    }
}

TEST(Help, OfAVerbEndsWithThreeExamplesThatWork)
{
    const std::string help = helpOf("inspect");
    const std::size_t at = help.find("Examples:\n");
    ASSERT_NE(at, std::string::npos);
    const std::vector<std::string> examples = linesOf(help.substr(at + 10));
    ASSERT_THAT(examples, SizeIs(3));
    for (const std::string& example : examples) {
        const Ran ran = run(example, samples);
        // The sample stream has an error in it, and says so.
        EXPECT_THAT(ran.exitCode, example.find("stream.bin") == std::string::npos ? 0 : 1)
            << example << ran.err;
        EXPECT_THAT(ran.out, Not(IsEmpty())) << example;
        EXPECT_EQ(ran.err, "") << example;
    }
}

TEST(Help, OfTheProgramTellsItsVersion)
{
    const Ran ran = run("vk410 --version", samples);

    EXPECT_EQ(ran.exitCode, 0);
    EXPECT_THAT(ran.out, testing::MatchesRegex(
                             "vk410 [0-9]+\\.[0-9]+\\.[0-9]+ \\(commit ([0-9a-f]{12}|unknown)\\)\n"));
}

// The first fenced block of that language in a document.
std::string blockOf(const std::string& document, const std::string& language)
{
    std::string block;
    bool isIn = false;
    for (const std::string& line : linesOf(contentOf(docs + "/" + document))) {
        if (isIn && line == "```")
            return block;
        if (isIn)
            block += line + "\n";
        isIn = isIn || line == "```" + language;
    }
    return block;
}

TEST(Documentation, OfTheStreamHasAPythonClientThatPrintsTraces)
{
    const std::string client = blockOf("stream-api.md", "python");
    ASSERT_THAT(client, Not(IsEmpty()));
    EXPECT_LE(linesOf(client).size(), 30U);
    const TemporaryFolder folder;
    folder.write("stream.py", {client.begin(), client.end()});
    const Ran ran =
        run("vk410 demo --listen 127.0.0.1:0 --for 20 >/dev/null 2>err & "
            "for i in $(seq 100); do grep -q monitor err && break; sleep 0.05; done; "
            "python3 stream.py $(grep -o '127.0.0.1:[0-9]* (C' err | cut -d' ' -f1) 5; echo exit $?; "
            "kill -INT $!; wait",
            folder.path());
    EXPECT_EQ(ran.err, "");
    EXPECT_THAT(ran.out, testing::HasSubstr("exit 0\n"));
    EXPECT_GE(ran.outLines().size(), 6U);
}

void expectFile(const std::string& name, const wire::Bytes& expected)
{
    const std::string content = contentOf(samples + "/" + name);
    if (wire::Bytes(content.begin(), content.end()) == expected)
        return;
    const std::string fresh = testing::TempDir() + name;
    std::FILE* const file = std::fopen(fresh.c_str(), "wb");
    ASSERT_TRUE(file);
    std::fwrite(expected.data(), 1, expected.size(), file);
    std::fclose(file);
    FAIL() << name << " is not what the sample writer writes; that lies in " << fresh;
}

TEST(Documentation, HasTheSamplesThatItsExamplesUse)
{
    expectFile("stream.bin", sampleStream());
    expectFile("receiver.pcap", sampleCapture());
    expectFile("df.bin", sampleDfStream());
}

} // namespace

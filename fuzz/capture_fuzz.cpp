// SPDX-License-Identifier: MIT
// Any bytes as a recording: reading and inspecting them must end, in bounds, and a raw stream's datagrams
// must be the bytes of the file.
#include "toolkit/inspection/explanation.h"
#include "toolkit/inspection/inspector.h"
#include "toolkit/inspection/jsonlines.h"
#include "toolkit/inspection/summary.h"
#include "toolkit/recording/recording.h"
#include <cstdlib>
#include <cstring>

namespace {

std::FILE* nowhere()
{
    static std::FILE* const file = std::fopen("/dev/null", "w");
    return file;
}

// One datagram goes to all sinks.
class AllSinks : public inspection::Sink {
public:
    void datagram(const inspection::DatagramInfo& datagram) override
    {
        m_json.datagram(datagram);
        m_summary.datagram(datagram);
        m_explanation.datagram(datagram);
    }
    void attribute(const inspection::AttributeInfo& attribute) override
    {
        m_json.attribute(attribute);
        m_summary.attribute(attribute);
        m_explanation.attribute(attribute);
    }
    void dropped(const inspection::Drop& drop) override
    {
        m_json.dropped(drop);
        m_summary.dropped(drop);
        m_explanation.dropped(drop);
    }
    void finish() override { m_summary.finish(); }

private:
    inspection::JsonLines m_json{nowhere()};
    inspection::Summary m_summary{nowhere(), "fuzz"};
    inspection::Explanation m_explanation{nowhere()};
};

void expectBytesOfTheFile(const recording::Datagram& datagram, const std::uint8_t* data, std::size_t size)
{
    const auto length = static_cast<std::size_t>(datagram.bytes.size());
    if (datagram.position > size || length > size - datagram.position ||
        std::memcmp(data + datagram.position, datagram.bytes.constData(), length) != 0)
        std::abort();
}

void inspectAll(const std::uint8_t* data, std::size_t size, const recording::Options& options)
{
    AllSinks sinks;
    inspection::Inspector inspector{sinks};
    try {
        recording::FilePtr file{::fmemopen(const_cast<std::uint8_t*>(data), size, "rb")};
        const std::unique_ptr<recording::DatagramSource> source =
            recording::openRecording(std::move(file), "fuzz", options);
        while (std::optional<recording::Datagram> datagram = source->next()) {
            if (datagram->origin.transport == recording::Transport::File)
                expectBytesOfTheFile(*datagram, data, size);
            inspector.inspect(std::move(*datagram));
        }
    } catch (const recording::BadFile&) {
        // What came before it was inspected.
    }
    sinks.finish();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) // no file for fmemopen
        return 0;
    inspectAll(data, size, {});
    inspectAll(data, size, {5555});
    return 0;
}

// SPDX-License-Identifier: MIT
#include "toolkit/receiver/source.h"
#include "toolkit/receiver/recordingsource.h"
#include "toolkit/receiver/tcpsource.h"
#include "toolkit/receiver/udpsource.h"
#include <chrono>

namespace receiver {

void Source::startMirror(const ListenSpec& /*place*/)
{
    throw BadSource{
        "a mirror needs a tcp:// source; datagrams of other sources can be recorded and replayed"};
}

std::unique_ptr<Source> makeSource(const SourceSpec& spec, const Playback& playback)
{
    switch (spec.kind) {
    case SourceSpec::Kind::Udp:
        return std::make_unique<UdpSource>(spec);
    case SourceSpec::Kind::Tcp:
        return std::make_unique<TcpSource>(spec);
    case SourceSpec::Kind::Recording:
        return std::make_unique<RecordingSource>(spec.path, playback);
    case SourceSpec::Kind::Simulation:
        break;
    }
    throw BadSource{"simulated sources are made by the simulation"};
}

std::int64_t nowNs()
{
    using namespace std::chrono;
    return duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace receiver

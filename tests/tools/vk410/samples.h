// SPDX-License-Identifier: MIT
#pragma once
// The small recordings that the documentation and --help use.
#include "wire/datagramwriter.h"

namespace support {

/// docs/samples/stream.bin: three datagrams back to back, in the second one a selector error.
[[nodiscard]] wire::Bytes sampleStream();

/// docs/samples/receiver.pcap: three panoramas over UDP to port 5555, one datagram missing between them.
[[nodiscard]] wire::Bytes sampleCapture();

/// docs/samples/df.bin: two sweeps of the simulated direction finder in docs/samples/df.json.
[[nodiscard]] wire::Bytes sampleDfStream();

} // namespace support

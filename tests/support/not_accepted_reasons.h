// SPDX-License-Identifier: MIT
#pragma once
// Why a processor drops attributes.
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include <string>
#include <vector>

namespace support {

/// Keeps the reasons that its processor gives.
class NotAcceptedReasons : public IMassDataObserver {
public:
    void DatagramDone(const DatagramReport&) override {}
    void AttributeDone(const AttributeReport&) override {}
    void AttributeNotAccepted(const char* reason) override { reasons.emplace_back(reason); }
    void StreamBroken(quint32) override {}
    void MirrorClientCut(qint64) override {}
    std::vector<std::string> reasons;
};

} // namespace support

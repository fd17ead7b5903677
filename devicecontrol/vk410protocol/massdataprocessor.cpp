// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "devicecontrol/vk410protocol/massdatareceiver.h"
#include <utility>

// The first virtual function of each interface, so that its type information has one home.
IMassDataObserver::~IMassDataObserver() = default;
IMassDataReceiver::~IMassDataReceiver() = default;
IMassDataProcessor::~IMassDataProcessor() = default;

void IMassDataProcessor::Init(QString path)
{
    m_path = std::move(path);
}

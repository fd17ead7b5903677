// SPDX-License-Identifier: MIT
#include "devicecontrol/vk410protocol/massdataprocessor.h"
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "devicecontrol/vk410protocol/massdatareceiver.h"
#include "devicecontrol/vk410protocol/vk410processor.h"
#include <utility>

// The first virtual function of each interface, so that its type information has one home.
IMassDataObserver::~IMassDataObserver() = default;
IMassDataReceiver::~IMassDataReceiver() = default;

IMassDataProcessor::IMassDataProcessor(const IMassDataProcessor& other)
    : m_path(other.m_path)
    , m_massDataObserver(other.m_massDataObserver)
{}

IMassDataProcessor& IMassDataProcessor::operator=(const IMassDataProcessor& other)
{
    if (this == &other)
        return *this;
    m_path = other.m_path;
    m_massDataObserver = other.m_massDataObserver;
    return *this;
}

IMassDataProcessor::~IMassDataProcessor()
{
    for (VK410Processor* const dispatcher : m_dispatchers)
        dispatcher->forget(*this);
}

void IMassDataProcessor::Init(QString path)
{
    m_path = std::move(path);
}

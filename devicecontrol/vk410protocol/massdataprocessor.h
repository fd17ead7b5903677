// SPDX-License-Identifier: MIT
#pragma once
// What the dispatcher hands attributes to.
#include "devicecontrol/vk410protocol/massdataobserver.h"
#include "devicecontrol/vk410protocol/udpdatagram.h"
#include <QString>
#include <vector>

class VK410Processor;

/// Takes the attributes of one tag and channel and turns them into values of the application.
/// Owner:  the application. Whichever dies first, processor or dispatcher, takes the routes to it along.
/// Thread: that of the dispatcher; a processor that no route leads to may die in any.
class Q_DECL_EXPORT IMassDataProcessor {
public:
    IMassDataProcessor() = default;

    /// Copies path and observer. Routes are not copied: they lead to one object.
    IMassDataProcessor(const IMassDataProcessor& other);
    IMassDataProcessor& operator=(const IMassDataProcessor& other);
    virtual ~IMassDataProcessor();

    /// Initialises the processor; what `path` means is the processor's. This one stores it.
    virtual void Init(QString path);

    /// Takes one attribute. Record and attribute are valid during the call only; whoever keeps something
    /// copies it.
    virtual void SetAttribute(DataPointers* data, UdpDatagramAttribute* attribute,
                              bool optHeaderAvailable) = 0;

    /// Who is told when this processor drops an attribute; null (the default): nobody.
    void SetMassDataObserver(IMassDataObserver* observer) { m_massDataObserver = observer; }

protected:
    /// What `Init` was given.
    [[nodiscard]] const QString& Path() const { return m_path; }

    /// Says that the current attribute is dropped, and why.
    void NotAccepted(const char* reason) const
    {
        if (m_massDataObserver)
            m_massDataObserver->AttributeNotAccepted(reason);
    }

    QString m_path; // path in the value tree, set by `Init`

private:
    friend class VK410Processor;
    IMassDataObserver* m_massDataObserver = nullptr;
    std::vector<VK410Processor*> m_dispatchers; // with routes to this, one entry a route
};

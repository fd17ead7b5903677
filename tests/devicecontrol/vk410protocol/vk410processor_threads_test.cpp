// SPDX-License-Identifier: MIT
// A dispatcher in another thread: datagrams and their ownership travel over a queued connection.
#include "devicecontrol/vk410protocol/scanrange.h"
#include "support/delivered.h"
#include <QCoreApplication>
#include <QMetaMethod>
#include <QThread>
#include <gtest/gtest.h>

namespace {

class Source : public QObject {
    Q_OBJECT
signals:
    void si_newDatagram(UdpDatagram* datagram);
};

class Names : public QObject {
    Q_OBJECT
public:
    void sendAll()
    {
        emit shorts({1, 2});
        emit size(7);
        emit ranges({std::make_shared<ScanRange>()});
    }
signals:
    void shorts(std::vector<short> values);
    void size(size_t value);
    void ranges(ScanRangeContainer scanRanges);
};

TEST(VK410ProcessorThreads, TakesDatagramsFromAnotherThreadInOrder)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    support::RecordingDispatcher library;
    QThread thread;
    library.dispatcher.moveToThread(&thread);
    Source source;
    ASSERT_TRUE(QObject::connect(&source, SIGNAL(si_newDatagram(UdpDatagram*)), &library.dispatcher,
                                 SLOT(ProcessDatagram(UdpDatagram*))));
    thread.start();
    for (const std::uint32_t count : {1U, 2U, 3U}) {
        emit source.si_newDatagram(
            new UdpDatagram{support::received(wire::DatagramWriter{}.attribute(101).count(count).build())});
    }
    QMetaObject::invokeMethod(
        &library.dispatcher, [&thread] { thread.quit(); }, Qt::QueuedConnection);
    thread.wait();
    ASSERT_EQ(library.recorder.delivered.size(), 3U);
    EXPECT_EQ(library.recorder.delivered[2].count, 3U);
}

TEST(VK410ProcessorThreads, HasItsSignalTypesRegisteredForQueuedConnections)
{
    int argc = 0;
    const QCoreApplication application{argc, nullptr};
    const VK410Processor dispatcher{false};
    Names names;
    int calls = 0;
    QObject::connect(
        &names, &Names::shorts, &names, [&](const std::vector<short>& v) { calls += v.size() == 2; },
        Qt::QueuedConnection);
    QObject::connect(
        &names, &Names::size, &names, [&](size_t v) { calls += v == 7; }, Qt::QueuedConnection);
    QObject::connect(
        &names, &Names::ranges, &names, [&](const ScanRangeContainer& v) { calls += v.size() == 1; },
        Qt::QueuedConnection);
    names.sendAll();
    QCoreApplication::processEvents();
    EXPECT_EQ(calls, 3);
    EXPECT_NE(QMetaType::type("UdpDatagram*"), QMetaType::UnknownType);
}

TEST(VK410ProcessorMetaObject, NamesItsSlotAndParameter)
{
    const QMetaObject& meta = VK410Processor::staticMetaObject;
    const int slot = meta.indexOfSlot("ProcessDatagram(UdpDatagram*)");
    ASSERT_GE(slot, 0);
    EXPECT_EQ(meta.method(slot).parameterNames(), QList<QByteArray>{"pDGram"});
}

} // namespace

#include "vk410processor_threads_test.moc"

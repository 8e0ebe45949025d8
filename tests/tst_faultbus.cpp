// SPDX-License-Identifier: MIT
// Faults on the bus: values of the wrong type, floods, huge messages, and the end of the bus.

#include "streamingboard.h"

#include <QDBusPendingCall>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

using namespace boardtest;

namespace {

/// Returns values that are invalid for Connected and for State.
QVariantList wrongValues()
{
    QVariant deep = 1;
    for (int i = 0; i < 20; ++i)
        deep = QVariant::fromValue(QDBusVariant(deep));
    return {1,
            QStringList{QStringLiteral("pending"), QStringLiteral("active")},
            QByteArray("pending"),
            QVariantMap{{QStringLiteral("State"), QStringLiteral("pending")}},
            QVariant::fromValue(QDBusUnixFileDescriptor(0)),
            deep,
            QVariantList{1, QStringLiteral("x"), deep}};
}

QDBusMessage selectBluetooth()
{
    return QDBusMessage::createMethodCall(QStringLiteral("org.kadobt"), QStringLiteral("/kadobt"),
                                          QStringLiteral("org.kadobt.commands"), QStringLiteral("SelectBluetooth"));
}

} // namespace

class BusFaultTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void malformedSignals();
    void survivesFloods();
    void survivesSlowFloods();
    void hugeProperties();
    void busEnds();
};

void BusFaultTest::malformedSignals()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready && b.startHeard());
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", true));
    const int descriptors = settledDescriptors(b.board.daemon);
    b.board.player.clearRequests();
    const QList<QByteArray> sent = packets(0.5);
    const auto half = sent.size() / 2;
    QVERIFY(b.send(sent.mid(0, half)));

    const QString connected = QStringLiteral("Connected");
    for (const QVariant &value : wrongValues()) {
        b.board.bluez.emitPropertiesChanged(b.phone.transportPath(), TransportInterface,
                                            {{QStringLiteral("State"), value}});
        b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{connected, value}});
        b.board.bluez.addObject(Hci0 + QStringLiteral("/dev_X"), {{Device, {{connected, value}}}});
    }
    b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{connected, QStringLiteral("false")}});
    // Valid, but irrelevant to the daemon.
    b.board.bluez.emitPropertiesChanged(PhonePath, QStringLiteral("org.bluez.MediaControl1"), {{connected, false}});
    b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{QStringLiteral("Alias"), QStringLiteral("Annika")}});
    b.board.bluez.addObject(Hci0 + QStringLiteral("/dev_Y"), {{Device, {{connected, false}}}});

    const QVariant path = QVariant::fromValue(QDBusObjectPath(Hci0));
    const QList<QVariantList> shapes{
        {},
        {Hci0},
        {path},
        {path, QVariantMap{{Device, QStringLiteral("no properties")}}},
        {QVariantMap(), Device, QStringList()},
        {TransportInterface, QVariantMap(), QVariantMap()},
    };
    const QString objectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");
    const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
    const QDBusMessage signalsOfBluez[] = {
        QDBusMessage::createSignal(QStringLiteral("/"), objectManager, QStringLiteral("InterfacesAdded")),
        QDBusMessage::createSignal(QStringLiteral("/"), objectManager, QStringLiteral("InterfacesRemoved")),
        QDBusMessage::createSignal(PhonePath, properties, QStringLiteral("PropertiesChanged")),
        QDBusMessage::createSignal(b.phone.transportPath(), properties, QStringLiteral("PropertiesChanged")),
    };
    for (QDBusMessage message : signalsOfBluez) {
        for (const QVariantList &shape : shapes) {
            message.setArguments(shape);
            b.board.bluez.connection().send(message);
        }
    }
    for (const char *property : {"AdapterPresent", "Connected", "Streaming"})
        QCOMPARE(b.board.control.property(QLatin1String(property)), QVariant(true));
    QCOMPARE(b.board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
    QCOMPARE(b.board.player.targets(), QStringList());
    QVERIFY(b.send(sent.mid(half)));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QVERIFY(settledDescriptors(b.board.daemon) <= descriptors + sim::SparePlayerSockets);
}

void BusFaultTest::survivesFloods()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const int descriptors = settledDescriptors(b.board.daemon);
    const QList<QByteArray> sent = packets(5);
    constexpr int Each = 20;
    const QDBusConnection bus = b.board.bluez.connection();
    const QString service = b.board.bluez.endpoints().constFirst().service;
    const auto toTheAgent = [&](const char *member, const QVariantList &arguments) {
        QDBusMessage call = QDBusMessage::createMethodCall(service, b.board.bluez.agentPath(),
                                                           QStringLiteral("org.bluez.Agent1"), QLatin1String(member));
        call.setArguments(arguments);
        bus.send(call); // without waiting for the reply
    };
    int i = 0;
    for (const QByteArray &packet : sent) {
        QVERIFY(b.phone.send(packet));
        for (const int end = i + Each; i < end; ++i) {
            const QString device = Hci0 + QStringLiteral("/dev_%1").arg(i);
            const QVariant path = QVariant::fromValue(QDBusObjectPath(device));
            b.board.bluez.emitPropertiesChanged(device, Device, {{QStringLiteral("RSSI"), QVariant(i)}});
            b.board.bluez.emitPropertiesChanged(device, Device, {{QStringLiteral("Connected"), i % 2 == 0}});
            toTheAgent("RequestAuthorization", {path});
            toTheAgent("AuthorizeService", {path, QStringLiteral("x")});
            bus.send(selectBluetooth());
        }
    }
    // Wait for the reply to a last call, because the log may have dropped lines.
    const QDBusPendingCall answer = bus.asyncCall(selectBluetooth(), 60'000);
    QVERIFY(sim::waitFor([&] { return answer.isFinished(); }, 60'000) && !answer.isError());
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    const auto closed = [&] { return b.board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets; };
    QVERIFY(sim::waitFor(closed, 20'000));
    QVERIFY(b.playsNewStream());
}

void BusFaultTest::survivesSlowFloods()
{
    ConfiguredBoard b(Traced, QStringLiteral("2>/dev/null"));
    QVERIFY(b.ready && b.startHeard());
    QVariantMap many;
    for (int i = 0; i < 200; ++i)
        many.insert(QStringLiteral("Property%1").arg(i), QByteArray(8, 'x'));
    // 90 MB, more than libdbus reads before messages are handled.
    constexpr int DrainTimeoutMs = 150'000; // an emulated board is slow
    QVERIFY(b.board.daemon.pause());
    for (int i = 0; i < 14'000; ++i)
        b.board.bluez.emitPropertiesChanged(PhonePath, Device, many);
    const QDBusPendingCall answer = b.board.bluez.connection().asyncCall(selectBluetooth(), DrainTimeoutMs);
    QVERIFY(b.board.daemon.resume());
    QVERIFY(sim::waitFor([&] { return answer.isFinished(); }, DrainTimeoutMs) && !answer.isError());
    QVERIFY(b.playsNewStream());
}

void BusFaultTest::hugeProperties()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.phone.start(Mtu) && b.active());
    const QString huge(8 * 1024 * 1024, QLatin1Char('x'));
    b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{QStringLiteral("Alias"), huge}});
    b.board.bluez.emitPropertiesChanged(b.phone.transportPath(), TransportInterface,
                                        {{QStringLiteral("Configuration"), huge.toLatin1()}});
    QVariantMapMap interfaces;
    for (int i = 0; i < 10'000; ++i)
        interfaces.insert(QStringLiteral("org.bluez.Interface%1").arg(i), {{QStringLiteral("Connected"), true}});
    b.board.bluez.addObject(Hci0 + QStringLiteral("/a").repeated(1000), interfaces);
    const QVariant path = QVariant::fromValue(QDBusObjectPath(QStringLiteral("/x")));
    const QVariantMap properties{{QStringLiteral("Configuration"), QByteArray(1024 * 1024, '\x7F')}};
    const auto configured = b.board.bluez.callEndpoint(2, QStringLiteral("SetConfiguration"), {path, properties});
    QCOMPARE(configured.type(), QDBusMessage::ReplyMessage);
    b.board.bluez.callEndpoint(2, QStringLiteral("ClearConfiguration"), {path});
    QCOMPARE(b.board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
    QVERIFY(b.playsNewStream());

    b.phone.disconnect();
    const QString name(1'000'000, QChar(0x00FC)); // 6 MB in a request
    sim::Phone phone(b.board.bluez, OtherPhonePath, name);
    phone.connect();
    const QString target = notification(true, true, QByteArray("%C3%BC").repeated(name.size()).constData(), false);
    WAIT_UNTIL(b.board.player.targets().last() == target);
}

void BusFaultTest::busEnds()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    b.board.bus.kill();
    WAIT_UNTIL(b.board.daemon.process().state() == QProcess::NotRunning);
    QCOMPARE(b.board.daemon.process().exitStatus(), QProcess::CrashExit);
    QCOMPARE(b.board.daemon.logTexts().last(), QStringLiteral("Fatal: The system bus is gone"));
}

QTEST_GUILESS_MAIN(BusFaultTest)
#include "tst_faultbus.moc"

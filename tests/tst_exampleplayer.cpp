// SPDX-License-Identifier: MIT
// The example player instead of the simulated one. Tests that a player works when it follows the documentation.

#include "streamingboard.h"

#include <QProcessEnvironment>

#include <algorithm>

using namespace boardtest;

class ExamplePlayerTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void playsThePhonesAudio();
};

void ExamplePlayerTest::playsThePhonesAudio()
{
    sim::Board board;
    QVERIFY(board.startDaemon(Traced));
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Bob & Co"));
    phone.connect();
    WAIT_UNTIL(board.control.property(QStringLiteral("Connected")).toBool());
    QVERIFY(phone.authorize() && phone.configure(sim::SbcFormat{}) && phone.start());
    // The example starts late. The daemon does not repeat earlier requests.
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Bob%20&%20Co", true));
    const auto finished = [&] { return board.daemon.logTexts().filter(QStringLiteral("AdapterManager::finished")); };
    WAIT_UNTIL(finished().size() == board.player.requests().size()); // unanswered ones would be repeated
    board.player.stopServing();

    QByteArray heard;
    QByteArray said;
    sim::ChildProcess example;
    QObject::connect(&example, &QProcess::readyReadStandardOutput, [&] { heard += example.readAllStandardOutput(); });
    QObject::connect(&example, &QProcess::readyReadStandardError, [&] { said += example.readAllStandardError(); });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), board.bus.address());
    example.setProcessEnvironment(environment);
    example.start(QStringLiteral(KADO_EXAMPLE_PLAYER), {QStringLiteral("cat")});
    const QByteArray plays = "plays 44100 Hz, 16 bits, 2 channels";

    const QList<QByteArray> sent = packets(1);
    const auto send = [&] {
        return std::all_of(sent.begin(), sent.end(), [&](const QByteArray &packet) { return phone.send(packet); });
    };
    QVERIFY2(sim::waitFor([&] { return said.contains(plays); }), said.constData());
    QVERIFY(send());
    const QByteArray first = sim::decodeSbc(sent);
    WAIT_UNTIL(heard == first);

    // The phone pauses and resumes: the example is told, and calls SelectBluetooth() again.
    phone.suspend();
    QVERIFY2(sim::waitFor([&] { return said.contains("connected: true, name: Bob & Co, streaming: false"); }),
             said.constData());
    said.clear();
    QVERIFY(phone.start());
    QVERIFY2(sim::waitFor([&] { return said.contains(plays); }), said.constData());
    QVERIFY(said.contains("connected: true, name: Bob & Co, streaming: true"));
    QVERIFY(send());
    const QByteArray both = sim::decodeSbc(sent + sent); // one decoder for both
    WAIT_UNTIL(heard == both);
}

QTEST_GUILESS_MAIN(ExamplePlayerTest)
#include "tst_exampleplayer.moc"

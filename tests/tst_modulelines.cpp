// SPDX-License-Identifier: MIT
// The module's protocol without a serial port: bytes in, lines out; lines in, commands and state out.

#include "module/linereader.h"
#include "module/moduleprotocol.h"

#include <QTest>

class ModuleLinesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void linesAreCut();
    void replies();
    void correctionsAreSavedUnlessTheModuleKeepsNone();
    void namesThatDoNotFitACommand();
    void phoneEvents();
};

namespace {

/// Returns the commands that follow one line.
QByteArray reply(ModuleProtocol &protocol, const QByteArray &line)
{
    return protocol.process(QString::fromLatin1(line)).command;
}

} // namespace

void ModuleLinesTest::linesAreCut()
{
    LineReader reader;
    QCOMPARE(reader.feed("Rea"), QStringList());
    QCOMPARE(reader.feed("dy\r\nA\n").join(QLatin1Char('|')), QStringLiteral("Ready||A"));
    QCOMPARE(reader.feed(QByteArray("B\xFC\r\0X\n", 6)), QStringList(QStringLiteral("B\u00FC")));
    // An endless line is dropped. The line after it is returned.
    for (int i = 0; i < 100; ++i)
        QCOMPARE(reader.feed(QByteArray(1000, 'x')), QStringList());
    QCOMPARE(reader.feed("x\nReady\n"), QStringList(QStringLiteral("Ready")));
    const QString longest(LineReader::MaxLineLength, QLatin1Char('y'));
    QCOMPARE(reader.feed(longest.toLatin1() + '\r'), QStringList(longest));
}

void ModuleLinesTest::replies()
{
    const QPair<const char *, const char *> rows[] = {
        {"Ready now", "get name\r"},
        {"ready", ""},
        {"NAME=Living room BT", "get audio\r"},
        {"NAME=Living room", "set name=Living room BT\rget audio\r"}, // without the suffix "BT"
        {"AUDIO=30", "set audio=3\rget i2s\r"},
        {"I2S", "set i2s=0202\rget codec\r"},
        {"CODEC=7 44100 2", "status\r"},
        {"CODEC=7 48000 1", "set codec=7 44100 1\rwrite\rreset\r"},
        {"CLOSE_OK AVRCP 0123456789AB", ""},
        {"LINK 1 CONNECTED AVRCP 0123456789AB PLAYING", ""},
    };
    for (const auto &[line, command] : rows) {
        ModuleProtocol protocol([] { return QStringLiteral("Living room"); });
        QVERIFY2(reply(protocol, line) == command, line);
    }
}

/// The protocol must not restart a module after every check, because it would then never play.
void ModuleLinesTest::correctionsAreSavedUnlessTheModuleKeepsNone()
{
    QString speakerName = QStringLiteral("A=B"); // in the module's answer the same as "A B"
    ModuleProtocol protocol([&] { return speakerName; });
    // Runs one check. Returns the last commands.
    const auto check = [&](const char *name, const char *audio) {
        reply(protocol, name);
        reply(protocol, audio);
        reply(protocol, "I2S=0202");
        return reply(protocol, "CODEC=7 44100 1");
    };
    const QByteArray saved = "write\rreset\r";
    const QByteArray done = "status\r";
    QCOMPARE(check("NAME=CSR8675 BT", "AUDIO=0"), saved);
    QCOMPARE(check("NAME=A=B BT", "AUDIO=3"), saved); // different corrections than before
    QCOMPARE(check("NAME=A=B BT", "AUDIO=3"), done);
    speakerName = QStringLiteral("Kitchen");
    QCOMPARE(check("NAME=A=B BT", "AUDIO=3"), saved);
    QCOMPARE(check("NAME=Kitchen BT", "AUDIO=3"), done);
    QCOMPARE(check("NAME=A=B BT", "AUDIO=3"), saved); // the module has lost its saved settings

    ModuleProtocol nameless([] { return QString(); });
    QCOMPARE(reply(nameless, "NAME=Old BT"), QByteArray());
    QCOMPARE(reply(nameless, "CODEC=5"), QByteArray("set codec=7 44100 1\rwrite\rreset\r"));
    QCOMPARE(reply(nameless, "CODEC=5"), QByteArray("set codec=7 44100 1\rstatus\r"));
}

void ModuleLinesTest::namesThatDoNotFitACommand()
{
    QString speakerName = QStringLiteral("K\u00C3\u00BC\r"); // UTF-8, read as Latin-1
    ModuleProtocol protocol([&] { return speakerName; });
    QCOMPARE(reply(protocol, "NAME=Old BT"), QByteArray("set name=K\xC3\x83\xC2\xBC BT\rget audio\r"));
    QCOMPARE(reply(protocol, "NAME=K\xC3\xBC"), QByteArray("get audio\r"));
    speakerName = QStringLiteral("\r");
    QCOMPARE(reply(protocol, "NAME=Old BT"), QByteArray());
    // A Bluetooth name has 248 bytes at most.
    speakerName = QString(1000, QLatin1Char('\xFC'));
    const QByteArray longest = QByteArray("\xC3\xBC").repeated(122);
    QCOMPARE(reply(protocol, "NAME=Old BT"), "set name=" + longest + " BT\rget audio\r");
    QCOMPARE(reply(protocol, "NAME=" + QByteArray(122, '\xFC')), QByteArray("get audio\r"));
}

void ModuleLinesTest::phoneEvents()
{
    ModuleProtocol protocol([] { return QStringLiteral("Kitchen"); });
    const struct {
        const char *line;
        bool connected;
        bool streaming;
        bool notify;
        bool queryStatus;
    } steps[] = {
        {"OPEN_OK AVRCP 01", false, false, false, false},
        {"OPEN_OK A2DP 01", true, false, true, true},
        {"AVRCP_PLAY 01", true, true, true, false},
        {"LINK 2 CONNECTED AVRCP 01 STOPPED", true, false, true, false},
        {"STATE=CONNECTABLE", false, false, true, false},
        {"STATE CONNECTED", true, false, true, false},
        {"STATE SLEEPING", true, false, true, false},
        {"LINK 2 CONNECTED AVRCP 01 PLAYING", true, true, true, false},
        {"LINK 2 CONNECTED AVRCP 01 SEEKING", true, true, true, false},
        {"LINK 2 CONNECTED HFP 01 STOPPED", true, true, true, false},
        {"AVRCP_STOP 01", true, false, true, false},
        {"AVRCP_PLAY 01", true, true, true, false},
        {"CLOSE_OK A2DP 01", false, false, true, false},
    };
    for (const auto &step : steps) {
        const ModuleReaction reaction = protocol.process(QString::fromLatin1(step.line));
        QVERIFY2(protocol.isConnected() == step.connected && protocol.isStreaming() == step.streaming, step.line);
        QVERIFY2(reaction.notify == step.notify && reaction.queryStatus == step.queryStatus, step.line);
    }

    QCOMPARE(reply(protocol, "LINK 1 CONNECTED A2DP 01"), QByteArray("name 01\r"));
    QCOMPARE(reply(protocol, "NAME 01 Anna's  phone=x"), QByteArray());
    QCOMPARE(reply(protocol, "NAME=Kitchen BT"), QByteArray("get audio\r")); // the next NAME is the module's again
    reply(protocol, "CLOSE_OK A2DP 01");
    QCOMPARE(protocol.phoneName(), QStringLiteral("Anna's  phone x"));
}

QTEST_GUILESS_MAIN(ModuleLinesTest)
#include "tst_modulelines.moc"

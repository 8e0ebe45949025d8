// SPDX-License-Identifier: MIT
// The functions that read command line, device file and name file at start.

#include "board/kadoinfo.h"
#include "board/speakername.h"
#include "commandline.h"
#include "sim/board.h"

#include <QBuffer>
#include <QTest>

class BoardFilesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void commandLine();
    void deviceInformation();
    void speakerName();
};

void BoardFilesTest::commandLine()
{
    using Action = CommandLine::Action;
    const struct {
        const char *words;
        Action action;
        int debugLevel;
        bool logToStderr;
        bool aacDisabled;
    } rows[] = {
        {"--stderr --debug 9 --disable-aac", Action::Run, 9, true, true},
        {"--debug 3 --debug -1", Action::Run, -1, false, false},
        {"--debug --stderr", Action::Run, 0, false, false}, // the next word is the level, even if it is an option
        {"--version --nonsense", Action::PrintVersion, 0, false, false},
        {"--stderr --nonsense --version", Action::PrintUsage, 0, true, false},
        {"--debug", Action::PrintUsage, 0, false, false},
    };
    for (const auto &row : rows) {
        const CommandLine line = CommandLine::parse(QString::fromLatin1(row.words).split(QLatin1Char(' ')));
        QVERIFY2(line.action == row.action && line.log.debugLevel == row.debugLevel, row.words);
        QVERIFY2(line.log.logToStderr == row.logToStderr && line.aacDisabled == row.aacDisabled, row.words);
    }
}

void BoardFilesTest::deviceInformation()
{
    const QPair<const char *, bool> rows[] = {
        {"<?xml version=\"1.0\"?>\n<kado>\n <settings>\n  <bt>melody</bt>\n </settings>\n</kado>", true},
        {"<settings><bt>melody</bt></settings>", false}, // the token after the "settings" tag is skipped
        {"<settings><bt>usb</bt><bt>melody</bt></settings>", true},
        {"<settings> <a><bt>melody</bt></a><bt>usb</bt></settings>", true},
        {"<k><settings> </settings><bt>melody</bt></k>", true},
        {"<k><bt>melody</bt><settings> </settings></k>", false},
        {"<settings> <bt> melody</bt></settings>", false},
        {"<settings> <bt><!--melody--></bt></settings>", false},
        {"<settings> <bt>melody</bt></wrong>", true},
    };
    for (const auto &[xml, melody] : rows) {
        QBuffer file;
        file.setData(xml);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY2(kadoInfo::selectsMelody(file) == melody, xml);
    }
}

void BoardFilesTest::speakerName()
{
    const QPair<QByteArray, QString> rows[] = {
        {" Living room \r\nBath\n", QStringLiteral(" Living room \r")},
        {QByteArray("Kit\0chen\n", 9), QStringLiteral("Kit")},
        {"K\xC3\xBC\n", QString::fromLatin1("K\xC3\xBC")},
        {"\nKitchen\n", QString()},
    };
    for (const auto &[content, name] : rows) {
        sim::writePlayerName(content);
        QCOMPARE(readSpeakerName(), name);
    }
    sim::writePlayerName(QByteArray(1024 * 1024, 'a'));
    QVERIFY(readSpeakerName().size() > 248 && readSpeakerName().size() <= 64 * 1024);
    sim::removePlayerName();
    QCOMPARE(readSpeakerName(), QString());
}

QTEST_GUILESS_MAIN(BoardFilesTest)
#include "tst_board.moc"

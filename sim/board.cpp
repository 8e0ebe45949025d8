// SPDX-License-Identifier: MIT
#include "sim/board.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace sim {

namespace {

const QString DeviceInfoPath = QStringLiteral("/etc/kado_info.xml");
const QString PlayerNamePath = QStringLiteral("/var/data/player_name");

// Several times longer than a start with sanitizers takes on a busy machine.
constexpr int SetUpTimeoutMs = 15'000;

void requireSandbox()
{
    if (qgetenv("KADO_SANDBOX") != "1")
        qFatal("A board writes files in /etc and /var. Run it in scripts/sandbox.");
}

} // namespace

void writeFile(const QString &path, const QByteArray &content)
{
    requireSandbox();
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
}

void writeDeviceInfo(const QByteArray &xml)
{
    writeFile(DeviceInfoPath, xml);
}

void removeDeviceInfo()
{
    requireSandbox();
    QFile::remove(DeviceInfoPath);
}

void writePlayerName(const QByteArray &content)
{
    writeFile(PlayerNamePath, content);
}

void removePlayerName()
{
    requireSandbox();
    QFile::remove(PlayerNamePath);
}

Board::Board(const QString &busSocketPath)
    : bus((requireSandbox(), busSocketPath)), bluez(bus.address()), control(bus.address())
{
    writeDeviceInfo("<?xml version=\"1.0\"?>\n<device>\n  <settings>\n    <bt>bluez</bt>\n  </settings>\n</device>\n");
    writePlayerName("Kitchen\n");
    bluez.addAdapter();
    player.serve();
}

Board::~Board()
{
    daemon.stop();
}

bool Board::startDaemon(const QStringList &arguments, const QString &redirection)
{
    const auto requestsBefore = player.requests().size();
    daemon.start(bus.address(), arguments, redirection);
    waitFor(
        [&] { return player.requests().size() > requestsBefore || daemon.process().state() == QProcess::NotRunning; },
        SetUpTimeoutMs);
    return player.requests().size() > requestsBefore;
}

} // namespace sim

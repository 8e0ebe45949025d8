#include "sim/board.h"

#include "bus/names.h"

#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

const QString DeviceInfoPath = QStringLiteral("/etc/kado_info.xml");
const QString PlayerNamePath = QStringLiteral("/var/data/player_name");
const QString CommandInterface = QStringLiteral("org.kadobt.commands");

// What a start with sanitizers takes on a busy machine, several times over.
constexpr int SetUpMs = 15'000;

void insistOnSandbox()
{
    if (qgetenv("KADO_SANDBOX") == "1")
        return;
    std::fprintf(stderr, "A board writes files of a speaker in /etc and /var: it runs in scripts/sandbox only.\n");
    std::exit(EXIT_FAILURE);
}

void writeFile(const QString &path, const QByteArray &content)
{
    insistOnSandbox();
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size())
        return;
    std::fprintf(stderr, "%s: %s\n", qPrintable(path), qPrintable(file.errorString()));
    std::exit(EXIT_FAILURE);
}

QString newConnectionName()
{
    static int instances = 0;
    return QStringLiteral("board-%1").arg(instances++);
}

} // namespace

void writeDeviceInfo(const QByteArray &xml)
{
    writeFile(DeviceInfoPath, xml);
}

void removeDeviceInfo()
{
    insistOnSandbox();
    QFile::remove(DeviceInfoPath);
}

void writePlayerName(const QByteArray &content)
{
    writeFile(PlayerNamePath, content);
}

void removePlayerName()
{
    insistOnSandbox();
    QFile::remove(PlayerNamePath);
}

Board::Board(const QString &busSocketPath)
    : bus((insistOnSandbox(), busSocketPath)), bluez(bus.address()),
      control_(QDBusConnection::connectToBus(bus.address(), newConnectionName()))
{
    writeDeviceInfo("<?xml version=\"1.0\"?>\n<device>\n  <settings>\n    <bt>bluez</bt>\n  </settings>\n</device>\n");
    writePlayerName("Kitchen\n");
    bluez.addAdapter();
    player.serve();
}

Board::~Board()
{
    daemon.stop();
    const QString name = control_.name();
    control_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name);
}

bool Board::startDaemon(const QStringList &arguments)
{
    const auto requestsBefore = player.requests().size();
    daemon.start(bus.address(), arguments);
    waitFor(
        [&] { return player.requests().size() > requestsBefore || daemon.process().state() == QProcess::NotRunning; },
        SetUpMs);
    return player.requests().size() > requestsBefore;
}

QDBusMessage Board::command(const QString &method)
{
    return callAndWait(control_,
                       QDBusMessage::createMethodCall(bus::ControlService, bus::ControlPath, CommandInterface, method));
}

QVariant Board::commandProperty(const QString &name)
{
    QDBusMessage call = QDBusMessage::createMethodCall(bus::ControlService, bus::ControlPath, bus::PropertiesInterface,
                                                       QStringLiteral("Get"));
    call << CommandInterface << name;
    return callAndWait(control_, call).arguments().value(0).value<QDBusVariant>().variant();
}

QDBusMessage Board::setCommandProperty(const QString &name, const QVariant &value)
{
    QDBusMessage call = QDBusMessage::createMethodCall(bus::ControlService, bus::ControlPath, bus::PropertiesInterface,
                                                       QStringLiteral("Set"));
    call << CommandInterface << name << QVariant::fromValue(QDBusVariant(value));
    return callAndWait(control_, call);
}

} // namespace sim

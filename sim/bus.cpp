// SPDX-License-Identifier: MIT
#include "sim/bus.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int StartTimeoutMs = 5000;

// A system bus, but with a policy that permits everything to everybody.
const char *const Configuration = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
  </policy>
</busconfig>
)";

// Sets the user root, because the user in the packaged configuration may be missing here.
const char *const PolicedConfiguration = R"(<busconfig>
  <include>/usr/share/dbus-1/system.conf</include>
  <user>root</user>
  %1
</busconfig>
)";

QString configurationFor(const QString &address)
{
    const QString folders = qEnvironmentVariable("KADO_BUS_POLICY");
    if (folders.isEmpty())
        return QString::fromLatin1(Configuration).arg(address);
    QString policies;
    const QStringList list = folders.split(QLatin1Char(':'));
    for (const QString &folder : list)
        policies += QStringLiteral("<includedir>%1</includedir>").arg(folder);
    return QString::fromLatin1(PolicedConfiguration).arg(policies);
}

[[noreturn]] void fail(const QString &what)
{
    std::fprintf(stderr, "The message bus did not start: %s\n", qPrintable(what));
    std::exit(EXIT_FAILURE);
}

} // namespace

Bus::Bus(const QString &socketPath)
    : socketPath_(socketPath.isEmpty() ? dir_.filePath(QStringLiteral("bus"))
                                       : QFileInfo(socketPath).absoluteFilePath()),
      address_(QStringLiteral("unix:path=") + QString::fromLatin1(QUrl::toPercentEncoding(socketPath_, "/", "~")))
{
    QFile configuration(dir_.filePath(QStringLiteral("bus.conf")));
    if (!configuration.open(QIODevice::WriteOnly))
        fail(configuration.errorString());
    configuration.write(configurationFor(address_).toUtf8());
    configuration.close();
    // Let every user connect, as on a board.
    QFile::setPermissions(dir_.path(), QFile::permissions(dir_.path()) | QFile::ReadOther | QFile::ExeOther);

    process_.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--config-file=") + configuration.fileName(), QStringLiteral("--nofork"),
                    QStringLiteral("--nopidfile"), QStringLiteral("--nosyslog"), QStringLiteral("--print-address"),
                    QStringLiteral("--address=") + address_});
    if (!process_.waitForStarted(StartTimeoutMs))
        fail(process_.errorString());
    while (!process_.canReadLine()) { // dbus-daemon prints its address when it listens
        if (!process_.waitForReadyRead(StartTimeoutMs))
            fail(QString::fromLocal8Bit(process_.readAllStandardError()));
    }
}

void Bus::kill()
{
    process_.kill();
    process_.waitForFinished();
}

Bus::~Bus()
{
    kill();
    QFile::remove(socketPath_);
}

} // namespace sim

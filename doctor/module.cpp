// SPDX-License-Identifier: MIT
#include "doctor/module.h"

#include "doctor/accounts.h"
#include "doctor/processes.h"
#include "module/i2sswitch.h"
#include "module/serialline.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>

namespace doctor {

namespace {

Finding line(std::optional<uid_t> serviceUser)
{
    const QString about = "serial line";
    struct stat status = {};
    if (::stat(ModuleLine, &status) != 0)
        return wrong(about, QString("%1: %2").arg(ModuleLine, qt_error_string(errno)),
                     "Check that the device tree enables this serial line");
    const QString seen = QString("%1, %2").arg(ModuleLine, ownership(status));
    if (!S_ISCHR(status.st_mode))
        return wrong(about, seen + ", is not a device", "Remove it, and find the process that created it");
    if (serviceUser && !hasAccess(*serviceUser, status, Access::ReadWrite))
        return wrong(about, seen + ": the user " + userName(*serviceUser) + " may not read and write it",
                     "Install the udev rules 70-kado-bt-module.rules");
    return ok(about, seen);
}

/// Finds the processes that have the line open.
Findings holders(const Peer &service)
{
    const QString about = "users of the line";
    const QString device = QFileInfo(ModuleLine).canonicalFilePath();
    if (device.isEmpty())
        return {};
    bool isOurs = false;
    bool someAreHidden = othersAreHidden();
    QStringList others;
    for (const Process &process : processes()) {
        const QDir descriptors(process.folder + "/fd");
        someAreHidden = someAreHidden || !descriptors.isReadable();
        const QStringList names = descriptors.entryList(QDir::System | QDir::Files);
        for (const QString &name : names) {
            if (QFile::symLinkTarget(descriptors.filePath(name)) != device)
                continue;
            if (service.process && process.folder == QString("/proc/%1").arg(service.process))
                isOurs = true;
            else
                others << process.name + " (" + process.folder + ')';
        }
    }
    others.removeDuplicates();
    if (!others.isEmpty())
        return {wrong(about, others.join(", "), "Keep getty and all other programs off the line")};
    if (isOurs)
        return {ok(about, "only kado-bt")};
    if (someAreHidden)
        return {note(about, "this user cannot see the open files of other users", "Run kado-bt-doctor as root")};
    return {wrong(about, "no process has it open",
                  "kado-bt is not running, or the line failed (see its log). Restart kado-bt")};
}

Finding console()
{
    const QString about = "kernel console";
    const QString active = "/sys/class/tty/console/active";
    QFile file(active);
    const QByteArray consoles = file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    if (consoles.split(' ').contains(QFile::encodeName(QFileInfo(ModuleLine).fileName())))
        return wrong(about, active + ": " + QString::fromLatin1(consoles),
                     "Remove the console= entry of that line from the kernel's command line");
    return ok(about, "does not use the line");
}

Finding i2sSwitch(std::optional<uid_t> serviceUser)
{
    const QString about = "I2S switch";
    struct stat status = {};
    if (::stat(I2sSwitchFile, &status) != 0)
        return wrong(about, QString("%1: %2").arg(I2sSwitchFile, qt_error_string(errno)),
                     "Add an LED of that name to the device tree");
    const QString seen = QString("%1, %2").arg(I2sSwitchFile, ownership(status));
    if (serviceUser && !hasAccess(*serviceUser, status, Access::Write))
        return wrong(about, seen + ": the user " + userName(*serviceUser) + " may not write it",
                     "Install the udev rules 70-kado-bt-module.rules");
    QFile file(I2sSwitchFile);
    if (!S_ISREG(status.st_mode) || !file.open(QIODevice::ReadOnly))
        return note(about, seen);
    const bool isOn = file.readAll().trimmed() == "1";
    return ok(about, seen + (isOn ? ", on" : ", off until the player connects to the audio socket"));
}

} // namespace

Findings checkModule(const Peer &service, std::optional<uid_t> serviceUser)
{
    return Findings{line(serviceUser)} + holders(service) + Findings{console(), i2sSwitch(serviceUser)};
}

} // namespace doctor

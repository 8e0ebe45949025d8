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
                     "Does the device tree enable that line?");
    const QString seen = QString("%1, %2").arg(ModuleLine, ownership(status));
    if (!S_ISCHR(status.st_mode))
        return wrong(about, seen + ", is no device", "Remove it, and see what has made it");
    if (serviceUser && !mayUse(*serviceUser, status, Access::ReadWrite))
        return wrong(about, seen + ": " + userName(*serviceUser) + " may not use it",
                     "Install 70-kado-bt-module.rules");
    return ok(about, seen);
}

/// Who has the line open.
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
        return {wrong(about, others.join(", "), "Take getty and all others off the line")};
    if (isOurs)
        return {ok(about, "kado-bt alone")};
    if (someAreHidden)
        return {note(about, "the files of others are hidden from this user", "Ask as root")};
    return {wrong(about, "nobody, not even kado-bt", "The line ended or failed, see its log: restart kado-bt")};
}

Finding console()
{
    const QString about = "kernel console";
    const QString active = "/sys/class/tty/console/active";
    QFile file(active);
    const QByteArray consoles = file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
    if (consoles.split(' ').contains(QFile::encodeName(QFileInfo(ModuleLine).fileName())))
        return wrong(about, active + ": " + QString::fromLatin1(consoles),
                     "Take console= with that line off the kernel's command line");
    return ok(about, "is not on the line");
}

Finding i2sSwitch(std::optional<uid_t> serviceUser)
{
    const QString about = "I2S switch";
    struct stat status = {};
    if (::stat(I2sSwitchFile, &status) != 0)
        return wrong(about, QString("%1: %2").arg(I2sSwitchFile, qt_error_string(errno)),
                     "The device tree needs a LED of that name");
    const QString seen = QString("%1, %2").arg(I2sSwitchFile, ownership(status));
    if (serviceUser && !mayUse(*serviceUser, status, Access::Write))
        return wrong(about, seen + ": " + userName(*serviceUser) + " may not write it",
                     "Install 70-kado-bt-module.rules");
    QFile file(I2sSwitchFile);
    if (!S_ISREG(status.st_mode) || !file.open(QIODevice::ReadOnly))
        return note(about, seen);
    const bool isOn = file.readAll().trimmed() == "1";
    return ok(about, seen + (isOn ? ", on" : ", off until the player connects to the audio socket"));
}

} // namespace

Findings lookAtModule(const Peer &service, std::optional<uid_t> serviceUser)
{
    return Findings{line(serviceUser)} + holders(service) + Findings{console(), i2sSwitch(serviceUser)};
}

} // namespace doctor

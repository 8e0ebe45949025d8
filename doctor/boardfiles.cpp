// SPDX-License-Identifier: MIT
#include "doctor/boardfiles.h"

#include "board/kadoinfo.h"
#include "board/speakername.h"
#include "doctor/accounts.h"

#include <QFile>

#include <cerrno>
#include <unistd.h>

namespace doctor {

namespace {

/// Others, a pipe for instance, may block who opens them.
bool isFile(const char *path)
{
    struct stat status = {};
    return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

/// Why `user`, or this one when there is none, cannot read the file; none when it can.
std::optional<Finding> unreadable(const QString &about, const char *path, std::optional<uid_t> user,
                                  const QString &advice)
{
    struct stat status = {};
    if (::stat(path, &status) != 0 && errno != EACCES)
        return wrong(about, QString("%1: %2").arg(path, qt_error_string(errno)), advice);
    if (user && status.st_ino && !mayUse(*user, status, Access::Read))
        return wrong(about,
                     QString("%1 belongs to %2: %3 cannot read it").arg(path, ownership(status), userName(*user)),
                     "Make it readable for that user");
    if (status.st_ino && !isFile(path))
        return wrong(about, QString("%1 is no file").arg(path), advice);
    if (::access(path, R_OK) != 0)
        return note(about, QString("%1: %2 may not read it").arg(path, userName(::getuid())), "Ask as root");
    return {};
}

Finding deviceFile(std::optional<uid_t> serviceUser)
{
    const QString about = "device file";
    if (auto finding = unreadable(about, DeviceInfoFile, serviceUser, "<kado/> in it will do for BlueZ"))
        return *finding;
    if (boardHasModule())
        return ok(about, QString("%1 selects the module").arg(DeviceInfoFile));
    QFile file(DeviceInfoFile);
    if (file.open(QIODevice::ReadOnly) && file.readAll().contains("melody"))
        return note(about, QString("%1 names melody, but selects BlueZ").arg(DeviceInfoFile),
                    "Is a module meant? Then see what selects it in integration.md");
    return ok(about, QString("%1 selects BlueZ").arg(DeviceInfoFile));
}

Finding nameFile(std::optional<uid_t> serviceUser)
{
    const QString about = "speaker's name";
    const QString advice = "Write the name in its first line and call ResetAlias()";
    if (auto finding = unreadable(about, SpeakerNameFile, serviceUser, advice))
        return *finding;
    const QString name = speakerName();
    if (name.isEmpty())
        return wrong(about, QString("the first line of %1 is empty").arg(SpeakerNameFile), advice);
    return ok(about, QString("%1 says \"%2\"").arg(SpeakerNameFile, name));
}

} // namespace

bool boardHasModule()
{
    QFile file(DeviceInfoFile);
    return isFile(DeviceInfoFile) && file.open(QIODevice::ReadOnly | QIODevice::Text) && kadoInfo::selectsMelody(file);
}

QString speakerName()
{
    return isFile(SpeakerNameFile) ? readSpeakerName() : QString();
}

Findings lookAtBoardFiles(std::optional<uid_t> serviceUser)
{
    return {deviceFile(serviceUser), nameFile(serviceUser)};
}

} // namespace doctor

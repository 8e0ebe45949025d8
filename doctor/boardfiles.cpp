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

/// Returns whether it is safe to open the path. A pipe, for example, may block open().
bool isFile(const char *path)
{
    struct stat status = {};
    return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

/// Returns why the file cannot be read, or nothing when it can. Checks access for `user`, if known, and for this
/// process.
std::optional<Finding> unreadable(const QString &about, const char *path, std::optional<uid_t> user,
                                  const QString &advice)
{
    struct stat status = {};
    if (::stat(path, &status) != 0 && errno != EACCES)
        return wrong(about, QString("%1: %2").arg(path, qt_error_string(errno)), advice);
    if (user && status.st_ino && !hasAccess(*user, status, Access::Read))
        return wrong(
            about,
            QString("%1 belongs to %2: the user %3 cannot read it").arg(path, ownership(status), userName(*user)),
            "Make it readable for that user");
    if (status.st_ino && !isFile(path))
        return wrong(about, QString("%1 is not a regular file").arg(path), advice);
    if (::access(path, R_OK) != 0)
        return note(about, QString("%1: the user %2 may not read it").arg(path, userName(::getuid())),
                    "Run kado-bt-doctor as root");
    return {};
}

Finding deviceFile(std::optional<uid_t> serviceUser)
{
    const QString about = "device file";
    const QString advice = "Write a regular file there. On a board with BlueZ the content <kado/> is enough";
    if (auto finding = unreadable(about, DeviceInfoFile, serviceUser, advice))
        return *finding;
    if (boardHasModule())
        return ok(about, QString("%1 selects the module").arg(DeviceInfoFile));
    QFile file(DeviceInfoFile);
    if (file.open(QIODevice::ReadOnly) && file.readAll().contains("melody"))
        return note(about, QString("%1 names melody, but selects BlueZ").arg(DeviceInfoFile),
                    "If the board has a module, see in integration.md how the file must select it");
    return ok(about, QString("%1 selects BlueZ").arg(DeviceInfoFile));
}

Finding nameFile(std::optional<uid_t> serviceUser)
{
    const QString about = "speaker's name";
    const QString advice = "Write the name into the first line of a regular file there, and call ResetAlias()";
    if (auto finding = unreadable(about, SpeakerNameFile, serviceUser, advice))
        return *finding;
    const QString name = speakerName();
    if (name.isEmpty())
        return wrong(about, QString("the first line of %1 is empty").arg(SpeakerNameFile), advice);
    return ok(about, QString("%1 has \"%2\"").arg(SpeakerNameFile, name));
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

Findings checkBoardFiles(std::optional<uid_t> serviceUser)
{
    return {deviceFile(serviceUser), nameFile(serviceUser)};
}

} // namespace doctor

// SPDX-License-Identifier: MIT
#include "doctor/mainconf.h"

#include "doctor/accounts.h"
#include "doctor/deviceclass.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <optional>
#include <unistd.h>

namespace doctor {

namespace {

struct Setting {
    const char *key;
    const char *byDefault;
    bool (*isGood)(const QString &value);
    Level otherwise;
    const char *advice;
};

const Setting Settings[] = {
    {"General/JustWorksRepairing", "never",
     [](const QString &value) { return value == "confirm" || value == "always"; }, Level::Wrong,
     "A phone whose owner has deleted the speaker cannot pair again: set it to confirm"},
    {"General/Class", "0x000000", [](const QString &value) { return isAudioClass(value.toUInt(nullptr, 0)); },
     Level::Note, "0x000414 is a loudspeaker; the class on the air counts"},
    {"General/FastConnectable", "false", [](const QString &value) { return value == "true"; }, Level::Note,
     "true lets phones connect faster, and takes more power"},
    {"General/PairableTimeout", "0", [](const QString &value) { return value == "0"; }, Level::Wrong,
     "After that time no new phone can pair: leave it at 0"},
    {"General/ControllerMode", "dual", [](const QString &value) { return value != "le"; }, Level::Wrong,
     "Without the classic radio there is no speaker: dual or bredr"},
    {"Policy/ReconnectAttempts", "7", [](const QString &value) { return value != "0"; }, Level::Note,
     "Who walks out of range and back has to connect by hand"},
};

/// The settings by "Group/Key"; none when a line is not one, where BlueZ gives up as well. QSettings would be one line,
/// but knows no comments that begin with "#".
std::optional<QMap<QString, QString>> settingsIn(const QByteArray &text)
{
    QMap<QString, QString> settings;
    QString group;
    for (const QString &whole : QString::fromUtf8(text).split('\n')) {
        const QString line = whole.trimmed();
        const auto equals = line.indexOf('=');
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (line.startsWith('[') && line.endsWith(']'))
            group = line.mid(1, line.size() - 2);
        else if (equals > 0 && !group.isEmpty())
            settings[group + '/' + line.left(equals).trimmed()] = line.mid(equals + 1).trimmed();
        else
            return {};
    }
    return settings;
}

} // namespace

Findings lookAtMainConf()
{
    const QString path = "/etc/bluetooth/main.conf";
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return {wrong("main.conf", path + " is no file", "BlueZ uses its defaults: replace it")};
    if (info.exists() && !info.isReadable())
        return {note("main.conf", QString("%1: %2 may not read it").arg(path, userName(::getuid())), "Ask as root")};
    QFile file(path);
    const auto settings = settingsIn(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    if (!settings)
        return {wrong("main.conf", path + " has lines that are no settings", "BlueZ ignores all of it: mend it")};

    Findings findings;
    for (const Setting &setting : Settings) {
        const QString about = QString("main.conf, ") + setting.key;
        const QString value = settings->value(setting.key, setting.byDefault);
        const QString seen = settings->contains(setting.key) ? value : value + ", the default";
        if (setting.isGood(value))
            findings << ok(about, seen);
        else
            findings << Finding{setting.otherwise, about, seen, setting.advice};
    }
    return findings;
}

} // namespace doctor

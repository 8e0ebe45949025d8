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
    const char *defaultValue;
    bool (*isGood)(const QString &value);
    Level badLevel; ///< level of the finding when the value is not good
    const char *advice;
};

const Setting Settings[] = {
    {"General/JustWorksRepairing", "never",
     [](const QString &value) { return value == "confirm" || value == "always"; }, Level::Wrong,
     "A phone that has forgotten the speaker cannot pair again. Set it to confirm"},
    {"General/Class", "0x000000", [](const QString &value) { return isAudioClass(value.toUInt(nullptr, 0)); },
     Level::Note, "0x000414 is a loudspeaker. Phones see the class in the line \"device class\""},
    {"General/FastConnectable", "false", [](const QString &value) { return value == "true"; }, Level::Note,
     "true lets phones connect faster, but takes more power"},
    {"General/PairableTimeout", "0", [](const QString &value) { return value == "0"; }, Level::Wrong,
     "New phones cannot pair after that many seconds. Set it to 0"},
    {"General/ControllerMode", "dual", [](const QString &value) { return value != "le"; }, Level::Wrong,
     "A speaker needs classic Bluetooth. Set it to dual or bredr"},
    {"Policy/ReconnectAttempts", "7", [](const QString &value) { return value != "0"; }, Level::Note,
     "A phone that was out of range does not reconnect by itself"},
};

/// Returns the settings by "Group/Key", or nothing when a line is not a setting, because BlueZ then ignores the file.
/// Does not use QSettings, because it knows no comments that begin with "#".
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

Findings checkMainConf()
{
    const QString path = "/etc/bluetooth/main.conf";
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return {wrong("main.conf", path + " is not a regular file", "BlueZ uses its defaults. Replace it by a file")};
    if (info.exists() && !info.isReadable())
        return {note("main.conf", QString("%1: the user %2 may not read it").arg(path, userName(::getuid())),
                     "Run kado-bt-doctor as root")};
    QFile file(path);
    const auto settings = settingsIn(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    if (!settings)
        return {wrong("main.conf", path + " has a line that is not a setting",
                      "BlueZ ignores the whole file. Correct that line")};

    Findings findings;
    for (const Setting &setting : Settings) {
        const QString about = QString("main.conf, ") + setting.key;
        const QString value = settings->value(setting.key, setting.defaultValue);
        const QString seen = settings->contains(setting.key) ? value : value + ", the default";
        if (setting.isGood(value))
            findings << ok(about, seen);
        else
            findings << Finding{setting.badLevel, about, seen, setting.advice};
    }
    return findings;
}

} // namespace doctor

// SPDX-License-Identifier: MIT
#include "doctor/rfkill.h"

#include <QDir>
#include <QFile>

namespace doctor {

namespace {

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

} // namespace

Findings checkRfkill()
{
    const QString about = "rfkill";
    Findings blocks;
    const QStringList names = QDir("/sys/class/rfkill").entryList({"rfkill*"}, QDir::Dirs);
    for (const QString &name : names) {
        const QString folder = "/sys/class/rfkill/" + name;
        if (contentOf(folder + "/type") != "bluetooth")
            continue;
        if (contentOf(folder + "/hard") == "1")
            blocks << wrong(about, folder + " is blocked by a hardware switch", "Turn the radio on at that switch");
        else if (contentOf(folder + "/soft") == "1")
            blocks << wrong(about, folder + " is blocked by software", "Run rfkill unblock bluetooth");
    }
    return blocks.isEmpty() ? Findings{ok(about, "nothing blocks Bluetooth")} : blocks;
}

} // namespace doctor

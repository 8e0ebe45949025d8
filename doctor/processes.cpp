// SPDX-License-Identifier: MIT
#include "doctor/processes.h"

#include <QDir>
#include <QFile>

namespace doctor {

QList<Process> processes()
{
    QList<Process> list;
    const QStringList names = QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs);
    for (const QString &name : names) {
        QFile comm("/proc/" + name + "/comm");
        if (comm.open(QIODevice::ReadOnly))
            list.append({"/proc/" + name, QString::fromLocal8Bit(comm.readAll()).trimmed()});
    }
    return list;
}

bool othersAreHidden()
{
    return !QFile::exists("/proc/1/comm");
}

} // namespace doctor

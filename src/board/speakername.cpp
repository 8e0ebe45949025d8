// SPDX-License-Identifier: MIT
#include "board/speakername.h"

#include <QByteArray>
#include <QFile>

namespace {

// Far above the 248 bytes of a Bluetooth name. Limits the read of a file without line feeds.
constexpr qint64 MaxLineBytes = 64 * 1024;

} // namespace

QString readSpeakerName()
{
    QFile file(QString::fromLatin1(SpeakerNameFile));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QByteArray line = file.readLine(MaxLineBytes);
    if (const auto zero = line.indexOf('\0'); zero >= 0)
        line.truncate(zero);
    return QString::fromLatin1(line).remove(QLatin1Char('\n'));
}

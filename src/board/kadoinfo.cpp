// SPDX-License-Identifier: MIT
#include "board/kadoinfo.h"

#include <QFile>
#include <QXmlStreamReader>

#include <cstdlib>

kadoInfo::kadoInfo()
{
    QFile file(QString::fromLatin1(DeviceInfoFile));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qDebug("Could not open kado_info.xml");
        std::exit(EXIT_FAILURE);
    }
    btModuleIsMelody_ = selectsMelody(file);
}

bool kadoInfo::selectsMelody(QIODevice &xml)
{
    QXmlStreamReader reader(&xml);
    const auto atElement = [&reader](const char *name) {
        return reader.isStartElement() && reader.name() == QLatin1String(name);
    };

    while (!reader.atEnd() && !atElement("settings"))
        reader.readNext();
    if (reader.atEnd())
        return false;
    reader.readNext();

    bool melody = false;
    while (!reader.atEnd()) {
        reader.readNext();
        if (!atElement("bt"))
            continue;
        reader.readNext();
        if (reader.isCharacters() && reader.text() == QLatin1String("melody"))
            melody = true;
    }
    return melody;
}

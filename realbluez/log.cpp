// SPDX-License-Identifier: MIT
#include "realbluez/log.h"

#include <QDateTime>

#include <cstdio>

namespace realbluez {

void logLine(const QString &who, const QString &text)
{
    std::printf("%.3f %-8s | %s\n", static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000, qPrintable(who),
                qPrintable(text));
    std::fflush(stdout);
}

} // namespace realbluez

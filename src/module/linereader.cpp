// SPDX-License-Identifier: MIT
#include "module/linereader.h"

#include "log/log.h"

QStringList LineReader::feed(const QByteArray &bytes)
{
    const auto zero = bytes.indexOf('\0');
    QStringList lines;
    for (const char byte : zero < 0 ? bytes : bytes.left(zero)) {
        if (byte == '\r' || byte == '\n') {
            if (!discarding_)
                lines << pending_;
            pending_.clear();
            discarding_ = false;
        } else if (!discarding_) {
            pending_ += QLatin1Char(byte);
            if (pending_.size() > MaxLineLength) {
                logDebug("0CSR8675 line without end dropped, beginning with") << pending_.left(40);
                pending_.clear();
                discarding_ = true;
            }
        }
    }
    return lines;
}

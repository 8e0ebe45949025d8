// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// A splitter of serial input into lines that end in CR or LF. Each byte is one Latin-1 character.
class LineReader {
public:
    /// Characters of the longest line that is accepted. The module's lines have about 40 characters, and a phone's name
    /// adds at most 248 bytes. A command that quotes such a line fits into SerialLine::MaxUnsentBytes.
    static constexpr int MaxLineLength = 1024;

    /// Appends the bytes of one read. Drops the rest of the read from the first zero byte on. Returns the lines that
    /// are now complete, including empty lines. A line longer than MaxLineLength is dropped up to its end and logged.
    QStringList feed(const QByteArray &bytes);

private:
    QString pending_;
    bool discarding_ = false; ///< set until the end of a line that is too long
};

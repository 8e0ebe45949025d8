// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// Cuts what a serial line brings into lines, ended by CR or LF. Each byte is one Latin-1 character.
class LineReader {
public:
    /// Longest line that is kept; the module's have some forty characters, and a phone's name in one 248 bytes at most.
    /// What is sent back of it fits into SerialLine::MaxUnsentBytes.
    static constexpr int MaxLineLength = 1024;

    /// Takes what one read brought, up to its first zero byte, and returns the lines that it completes, empty ones
    /// included. A line that grows beyond MaxLineLength is dropped and logged; reading goes on behind its end.
    QStringList feed(const QByteArray &bytes);

private:
    QString pending_;
    bool overlong_ = false; ///< the rest of the current line is dropped as well
};

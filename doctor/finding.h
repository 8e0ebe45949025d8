// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>

namespace doctor {

enum class Level {
    Ok,    ///< as it should be
    Wrong, ///< keeps a speaker silent, or some phones from finding or pairing it
    Note,  ///< worth knowing, or hidden from this user
};

/// One thing that was looked at.
struct Finding {
    Level level;
    QString about;  ///< the thing, in a word or two
    QString seen;   ///< its state; may hold text of phones and other processes
    QString advice; ///< what to do about it; may be empty unless it is wrong
};
using Findings = QList<Finding>;

inline Finding ok(const QString &about, const QString &seen)
{
    return {Level::Ok, about, seen, {}};
}
inline Finding wrong(const QString &about, const QString &seen, const QString &advice)
{
    return {Level::Wrong, about, seen, advice};
}
inline Finding note(const QString &about, const QString &seen, const QString &advice = {})
{
    return {Level::Note, about, seen, advice};
}

} // namespace doctor

// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>

namespace doctor {

enum class Level {
    Ok,    ///< correct
    Wrong, ///< prevents sound, or prevents some phones from finding or pairing the speaker
    Note,  ///< useful to know, or hidden from this user
};

/// The result of one check.
struct Finding {
    Level level;
    QString about;  ///< the checked thing, in a word or two
    QString seen;   ///< its state; may hold text from phones and other processes
    QString advice; ///< the remedy; never empty at Level::Wrong
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

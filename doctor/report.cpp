// SPDX-License-Identifier: MIT
#include "doctor/report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace doctor {

namespace {

QString nameOf(Level level)
{
    switch (level) {
    case Level::Ok:
        return "ok";
    case Level::Wrong:
        return "wrong";
    case Level::Note:
        break;
    }
    return "note";
}

} // namespace

bool isHealthy(const Findings &findings)
{
    return std::none_of(findings.begin(), findings.end(),
                        [](const Finding &finding) { return finding.level == Level::Wrong; });
}

QByteArray asLines(const Findings &findings)
{
    constexpr int LevelWidth = 7;
    QByteArray lines;
    for (const Finding &finding : findings) {
        QString line = nameOf(finding.level).leftJustified(LevelWidth) + finding.about + ": " + finding.seen;
        if (!finding.advice.isEmpty())
            line += ". " + finding.advice;
        for (QChar &character : line) {
            if (character.category() == QChar::Other_Control)
                character = '?';
        }
        lines += line.toUtf8() + '\n';
    }
    return lines;
}

QByteArray asJson(const Findings &findings)
{
    QJsonArray list;
    for (const Finding &finding : findings) {
        list.append(QJsonObject{{"level", nameOf(finding.level)},
                                {"about", finding.about},
                                {"seen", finding.seen},
                                {"advice", finding.advice}});
    }
    return QJsonDocument(QJsonObject{{"healthy", isHealthy(findings)}, {"findings", list}}).toJson();
}

} // namespace doctor

// SPDX-License-Identifier: MIT
#include "module/moduleprotocol.h"

#include "board/speakername.h"
#include "log/log.h"

#include <QRegularExpression>

#include <utility>

struct ModuleProtocol::Rule {
    const char *word0;
    const char *word1; ///< null matches any word
    ModuleReaction (ModuleProtocol::*react)(const Words &words);
};

const ModuleProtocol::Rule ModuleProtocol::Rules[] = {
    {"Ready", nullptr, &ModuleProtocol::ready},        {"OPEN_OK", "A2DP", &ModuleProtocol::opened},
    {"CLOSE_OK", "A2DP", &ModuleProtocol::closed},     {"AVRCP_PLAY", nullptr, &ModuleProtocol::playing},
    {"AVRCP_PAUSE", nullptr, &ModuleProtocol::paused}, {"AVRCP_STOP", nullptr, &ModuleProtocol::stopped},
    {"NAME", nullptr, &ModuleProtocol::named},         {"AUDIO", nullptr, &ModuleProtocol::audioMode},
    {"I2S", nullptr, &ModuleProtocol::i2sMode},        {"CODEC", nullptr, &ModuleProtocol::codec},
    {"STATE", nullptr, &ModuleProtocol::state},        {"LINK", nullptr, &ModuleProtocol::link},
};

namespace {

// Bytes in UTF-8. A Bluetooth name has at most 248 bytes, and the module would cut a longer name.
constexpr int MaxNameLength = 248 - static_cast<int>(sizeof SpeakerNameSuffix - 1);

/// Returns the part of a speaker's name that fits into a command, without carriage returns, which would end the
/// command.
QString nameForModule(QString speakerName)
{
    speakerName = speakerName.remove(QLatin1Char('\r')).left(MaxNameLength);
    while (speakerName.toUtf8().size() > MaxNameLength)
        speakerName.chop(1);
    return speakerName;
}

ModuleReaction command(const QByteArray &text)
{
    ModuleReaction reaction;
    reaction.command = text;
    return reaction;
}

ModuleReaction notification(const QByteArray &text = {})
{
    ModuleReaction reaction;
    reaction.command = text;
    reaction.notify = true;
    return reaction;
}

} // namespace

ModuleProtocol::Words::Words(const QString &line)
{
    static const QRegularExpression separator(QStringLiteral("[ =]"));
    words_ = line.split(separator);
}

ModuleReaction ModuleProtocol::process(const QString &line)
{
    const Words words(line);
    for (const Rule &rule : Rules) {
        if (words[0] == QLatin1String(rule.word0) && (!rule.word1 || words[1] == QLatin1String(rule.word1)))
            return (this->*rule.react)(words);
    }
    return {};
}

ModuleReaction ModuleProtocol::ready(const Words & /*words*/)
{
    return command(GetName);
}

ModuleReaction ModuleProtocol::opened(const Words & /*words*/)
{
    qDebug("Connected");
    connected_ = true;
    ModuleReaction reaction = notification();
    reaction.queryStatus = true;
    return reaction;
}

ModuleReaction ModuleProtocol::closed(const Words & /*words*/)
{
    qDebug("Disconnected");
    connected_ = false;
    streaming_ = false;
    return notification("DISCOVERABLE ON\r");
}

ModuleReaction ModuleProtocol::playing(const Words & /*words*/)
{
    qDebug("Streaming");
    streaming_ = true;
    return notification();
}

ModuleReaction ModuleProtocol::paused(const Words & /*words*/)
{
    qDebug("Stream Paused");
    streaming_ = false;
    return notification();
}

ModuleReaction ModuleProtocol::stopped(const Words & /*words*/)
{
    qDebug("Stream Stopped");
    streaming_ = false;
    return notification();
}

ModuleReaction ModuleProtocol::named(const Words &words)
{
    if (!remoteNamePending_)
        return checkName(words);
    remoteNamePending_ = false;
    phoneName_ = words.joined(2, words.count());
    logDebug() << phoneName_;
    return {};
}

ModuleReaction ModuleProtocol::checkName(const Words &words)
{
    // The last of several words is the suffix "BT".
    const QString moduleName = words.count() < 3 ? words[1] : words.joined(1, words.count() - 1);
    const QString speakerName = nameForModule(speakerName_());
    if (speakerName.isEmpty())
        return {};
    if (speakerName == moduleName) {
        logDebug() << moduleName + QLatin1String(SpeakerNameSuffix);
        return command("get audio\r");
    }
    qDebug("BT name mismatch - fixing");
    const QByteArray name = (speakerName + QLatin1String(SpeakerNameSuffix)).toUtf8();
    return command(correct(Name, "set name=" + name + '\r') + "get audio\r");
}

ModuleReaction ModuleProtocol::audioMode(const Words &words)
{
    if (words[1] == QLatin1String("3"))
        return command("get i2s\r");
    qDebug("BT audio mode mismatch - fixing");
    return command(correct(AudioMode, "set audio=3\r") + "get i2s\r");
}

ModuleReaction ModuleProtocol::i2sMode(const Words &words)
{
    if (words[1] == QLatin1String("0202"))
        return command("get codec\r");
    qDebug("BT I2S mode mismatch - fixing");
    return command(correct(I2sMode, "set i2s=0202\r") + "get codec\r");
}

ModuleReaction ModuleProtocol::codec(const Words &words)
{
    QByteArray correction;
    if (words[1] != QLatin1String("7") || words[2] != QLatin1String("44100")) {
        qDebug("BT codec mode mismatch - fixing");
        correction = correct(CodecMode, "set codec=7 44100 1\r");
    }
    const Corrections corrections = std::exchange(corrections_, {});
    const bool nothingCorrected = corrections == Corrections{};
    if (!nothingCorrected && corrections == savedCorrections_) {
        qDebug("BT settings are not kept by the module");
        return command(correction + Status);
    }
    savedCorrections_ = corrections;
    return command(nothingCorrected ? QByteArray(Status) : correction + "write\rreset\r");
}

ModuleReaction ModuleProtocol::state(const Words &words)
{
    if (words[1] == QLatin1String("CONNECTABLE")) {
        connected_ = false;
        streaming_ = false;
    } else if (words[1] == QLatin1String("CONNECTED")) {
        connected_ = true;
    }
    return notification();
}

ModuleReaction ModuleProtocol::link(const Words &words)
{
    if (words[3] == QLatin1String("AVRCP")) {
        if (words[5] == QLatin1String("PLAYING"))
            streaming_ = true;
        else if (words[5] == QLatin1String("PAUSED") || words[5] == QLatin1String("STOPPED"))
            streaming_ = false;
    } else if (words[3] == QLatin1String("A2DP")) {
        remoteNamePending_ = true;
        return notification("name " + words[4].toUtf8() + "\r");
    }
    return notification();
}

// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>

/// What is to be done after a line of the module's.
struct ModuleReaction {
    QByteArray command;       ///< to be written to the module, its carriage returns included; empty: nothing
    bool notify = false;      ///< tell the player, once things have settled
    bool queryStatus = false; ///< ask the module for its status, once the connection has settled
};

/// The conversation with the CSR8675, apart from any port: lines in, reactions out.
///
/// The settings are checked in a chain that "get name" begins: name, audio mode 3, I2S mode 0202, codec 7 at 44100 Hz.
/// A wrong one is corrected on the way; at its end corrected settings are saved and the module restarts, announces
/// "Ready" and is checked again, or, with nothing to correct, its status is asked for. Corrections that were saved and
/// have to be made once more, all of them and no other, are ones that this module does not keep, or tells in another
/// way: they are made, but not saved again, since the module would restart without end. Without a speaker name the
/// chain ends after the name.
class ModuleProtocol {
public:
    static constexpr char GetName[] = "get name\r";
    static constexpr char Status[] = "status\r";

    /// `speakerName` is asked for the speaker's name, empty if it has none, whenever the module's is checked.
    explicit ModuleProtocol(std::function<QString()> speakerName) : speakerName_(std::move(speakerName)) {}

    /// Takes one line without its end. What is not understood changes nothing.
    ModuleReaction process(const QString &line);

    bool isConnected() const { return connected_; }
    bool isStreaming() const { return streaming_; }
    /// The phone's name as the module last reported it; kept when the phone leaves.
    QString phoneName() const { return phoneName_; }

private:
    struct Rule;
    static const Rule Rules[];

    /// The words of a line, split at each blank and each "="; a word behind the last is empty.
    class Words {
    public:
        explicit Words(const QString &line);
        QString operator[](int index) const { return words_.value(index); }
        int count() const { return static_cast<int>(words_.size()); }
        /// Words `first` up to but not including `last`, one blank between them.
        QString joined(int first, int last) const { return words_.mid(first, last - first).join(QLatin1Char(' ')); }

    private:
        QStringList words_;
    };

    ModuleReaction ready(const Words &words);
    ModuleReaction opened(const Words &words);
    ModuleReaction closed(const Words &words);
    ModuleReaction playing(const Words &words);
    ModuleReaction paused(const Words &words);
    ModuleReaction stopped(const Words &words);
    ModuleReaction named(const Words &words);
    ModuleReaction audioMode(const Words &words);
    ModuleReaction i2sMode(const Words &words);
    ModuleReaction codec(const Words &words);
    ModuleReaction state(const Words &words);
    ModuleReaction link(const Words &words);
    ModuleReaction checkName(const Words &words);

    enum Setting { Name, AudioMode, I2sMode, CodecMode, SettingCount };
    /// The commands with which settings were corrected; empty for one that was right.
    using Corrections = std::array<QByteArray, SettingCount>;

    /// Remembers a correction and returns its command.
    const QByteArray &correct(Setting setting, const QByteArray &command) { return corrections_[setting] = command; }

    std::function<QString()> speakerName_;
    bool connected_ = false;
    bool streaming_ = false;
    QString phoneName_;
    bool remoteNamePending_ = false; ///< the next NAME is the phone's
    Corrections corrections_;        ///< not saved yet
    Corrections savedCorrections_;   ///< saved last; none once a check has found everything right
};

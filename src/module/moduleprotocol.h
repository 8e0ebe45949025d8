// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>

/// The actions that follow a line from the module.
struct ModuleReaction {
    QByteArray command;       ///< to write to the module, including carriage returns; may be empty
    bool notify = false;      ///< notify the player when the burst of lines is over
    bool queryStatus = false; ///< ask the module for its status after a delay
};

/// The text protocol of the CSR8675, independent of the port. It takes lines and returns reactions.
///
/// The command "get name" starts a chain of checks: name, audio mode 3, I2S mode 0202, codec 7 at 44100 Hz. A wrong
/// setting is corrected during the chain. If no setting was wrong, the chain ends with a status query. Otherwise the
/// settings are saved and the module is reset. The module then announces "Ready", and the chain starts again.
///
/// If a chain makes exactly the corrections that were saved last, this module does not keep them or reports them
/// differently. They are then made but not saved, because the module would restart in an endless loop, and the chain
/// ends with the status query. Without a speaker name the chain ends after the name.
class ModuleProtocol {
public:
    static constexpr char GetName[] = "get name\r";
    static constexpr char Status[] = "status\r";

    /// `speakerName` returns the speaker's name, empty if there is none. It is called for each check of the module's
    /// name.
    explicit ModuleProtocol(std::function<QString()> speakerName) : speakerName_(std::move(speakerName)) {}

    /// Handles one line without its line end. An unknown line has no effect.
    ModuleReaction process(const QString &line);

    bool isConnected() const { return connected_; }
    bool isStreaming() const { return streaming_; }
    /// Returns the phone's name as last reported by the module. It is kept when the phone disconnects.
    QString phoneName() const { return phoneName_; }

private:
    struct Rule;
    static const Rule Rules[];

    /// The words of a line, split at each blank and each "=". A word beyond the last is empty.
    class Words {
    public:
        explicit Words(const QString &line);
        QString operator[](int index) const { return words_.value(index); }
        int count() const { return static_cast<int>(words_.size()); }
        /// Returns the words from `first` to before `last`, joined with blanks.
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
    /// The correcting command of each setting, empty if the setting was right.
    using Corrections = std::array<QByteArray, SettingCount>;

    /// Records a correction and returns its command.
    const QByteArray &correct(Setting setting, const QByteArray &command) { return corrections_[setting] = command; }

    std::function<QString()> speakerName_;
    bool connected_ = false;
    bool streaming_ = false;
    QString phoneName_;
    bool remoteNamePending_ = false; ///< the next NAME line has the phone's name
    Corrections corrections_;        ///< made in the current chain
    Corrections savedCorrections_;   ///< saved last; empty after a chain without corrections
};

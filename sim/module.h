// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include <memory>

namespace sim {

/// A CSR8675 module on the far end of a pseudo terminal, which is put at /dev/ttymxc3 of the sandbox. It keeps settings
/// of its own, running and saved ones, answers the commands of its text protocol and reports what a phone does.
class Module : public QObject {
    Q_OBJECT
public:
    struct Settings {
        QByteArray name = "CSR8675 BT";
        QByteArray audio = "0";
        QByteArray i2s = "0101";
        QByteArray codec = "7 48000 1";
    };

    /// How it talks.
    struct Manner {
        QByteArray lineEnd = "\r\n";
        int fragmentBytes = 0; ///< replies come in pieces of this size, one a turn of the event loop; 0: whole
        bool junk = false;     ///< lines that mean nothing between the others
        int delayMs = 0;       ///< before each reply
        bool mute = false;     ///< reads and says nothing
    };

    /// A line of the dialogue, without its end.
    struct Spoken {
        bool byDaemon;
        QByteArray line;
        qint64 ms; ///< since the module was made
    };

    explicit Module(QObject *parent = nullptr);
    ~Module() override;

    Settings settings; ///< as they run; what "write" saves, "reset" restores
    Manner manner;

    // What a phone does.
    void phoneConnects(const QByteArray &address, const QByteArray &name);
    void phonePlays() { phoneDoes("AVRCP_PLAY", "PLAYING"); }
    void phonePauses() { phoneDoes("AVRCP_PAUSE", "PAUSED"); }
    void phoneStops() { phoneDoes("AVRCP_STOP", "STOPPED"); }
    void phoneDisconnects();

    /// Sends bytes as they are.
    void sendRaw(const QByteArray &bytes);
    /// The daemon's end of the line, to set before the daemon opens it, and to ask for its settings.
    int line() const { return slave_.get(); }
    /// Leaves the line to the daemon alone, which has opened it.
    void letGoOfLine() { slave_.reset(); }
    /// The line ends as if the device was pulled out.
    void unplug();

    const QList<Spoken> &dialogue() const { return dialogue_; }
    /// The commands of the daemon alone, from number `from` on.
    QList<QByteArray> commands(int from = 0) const;

Q_SIGNALS:
    void spoke(const sim::Module::Spoken &line);

private:
    void readCommands();
    void obey(const QByteArray &command);
    void phoneDoes(const QByteArray &event, const QByteArray &playState);
    void say(const QByteArray &line);
    void record(bool byDaemon, const QByteArray &line);
    void sendFragments();

    FileDescriptor master_;
    FileDescriptor slave_; ///< held open, so that the master has no end of file while the daemon is away
    std::unique_ptr<QSocketNotifier> readable_;
    QByteArray received_;
    QByteArray unsent_;
    bool sending_ = false;
    Settings saved_;
    QByteArray address_; ///< of the connected phone; empty: none
    QByteArray phoneName_;
    QByteArray playState_ = "STOPPED";
    QList<Spoken> dialogue_;
    QElapsedTimer clock_;
};

} // namespace sim

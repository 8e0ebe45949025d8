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

/// A CSR8675 module behind a pseudo terminal, which appears in the sandbox as /dev/ttymxc3. It has running and saved
/// settings, answers the commands of its text protocol, and reports the actions of a phone.
class Module : public QObject {
    Q_OBJECT
public:
    struct Settings {
        QByteArray name = "CSR8675 BT";
        QByteArray audio = "0";
        QByteArray i2s = "0101";
        QByteArray codec = "7 48000 1";
    };

    struct Behaviour {
        QByteArray lineEnd = "\r\n";
        int fragmentBytes = 0; ///< size of the writes that replies are split into, 1 ms apart; 0: not split
        bool junk = false;     ///< send meaningless lines between the others
        int delayMs = 0;       ///< before each reply
        bool mute = false;     ///< read commands, but never reply
    };

    /// A line in either direction, without its line end.
    struct DialogueLine {
        bool byDaemon;
        QByteArray line;
        qint64 ms; ///< since the module was created
    };

    explicit Module(QObject *parent = nullptr);
    ~Module() override;

    Settings settings; ///< the running ones; "write" saves them, "reset" restores the saved ones
    Behaviour behaviour;

    // Actions of a phone.
    void phoneConnects(const QByteArray &address, const QByteArray &name);
    void phonePlays() { reportPlayState("AVRCP_PLAY", "PLAYING"); }
    void phonePauses() { reportPlayState("AVRCP_PAUSE", "PAUSED"); }
    void phoneStops() { reportPlayState("AVRCP_STOP", "STOPPED"); }
    void phoneDisconnects();

    /// Sends bytes without a line end and without recording them.
    void sendRaw(const QByteArray &bytes);
    /// Returns a descriptor of the daemon's end of the line, to change or read its terminal settings.
    int line() const { return slave_.get(); }
    /// Closes this process's descriptor of the daemon's end. Call after the daemon has opened the line.
    void closeLine() { slave_.reset(); }
    /// Closes both ends, so that the line hangs up as if the device was unplugged.
    void unplug();

    const QList<DialogueLine> &dialogue() const { return dialogue_; }
    /// Returns the daemon's commands from index `from` on.
    QList<QByteArray> commands(int from = 0) const;

Q_SIGNALS:
    void lineTransferred(const sim::Module::DialogueLine &line);

private:
    void readCommands();
    void execute(const QByteArray &command);
    void reportPlayState(const QByteArray &event, const QByteArray &playState);
    void sendLine(const QByteArray &line);
    void record(bool byDaemon, const QByteArray &line);
    void sendFragments();

    FileDescriptor master_;
    FileDescriptor slave_; ///< open, because the master would report a hang-up while no daemon has the line open
    std::unique_ptr<QSocketNotifier> readable_;
    QByteArray received_;
    QByteArray unsent_;
    bool sending_ = false;
    Settings saved_;
    QByteArray address_; ///< of the connected phone; empty when no phone is connected
    QByteArray phoneName_;
    QByteArray playState_ = "STOPPED";
    QList<DialogueLine> dialogue_;
    QElapsedTimer clock_;
};

} // namespace sim

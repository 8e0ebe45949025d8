// SPDX-License-Identifier: MIT
#pragma once

#include "sim/board.h"
#include "soak/soakaudio.h"
#include "soak/soakmaterial.h"
#include "soak/soakreport.h"

#include <QElapsedTimer>

#include <array>
#include <functional>
#include <memory>

namespace sim {

/// The board of a soak: its phones, its speaker and its player, and what the daemon has to make of them. Each step does
/// one thing, waits until it is through, and insists that the player was told of it, that the control interface says
/// the same, and that what was to be heard is heard. It is to be called only in the states that the table of steps in
/// main.cpp names.
class SoakBoard {
public:
    /// How far a phone has come; listening: it streams, and a client reads.
    enum State { Idle = 1, Connected = 2, Configured = 4, Streaming = 8, Listening = 16 };

    /// Starts the daemon.
    SoakBoard(Board &board, SoakReport &report, SoakRandom &random);

    State state() const { return state_ == Streaming && audio_.clientListens() ? Listening : state_; }

    // The life of a phone and its stream.
    void connectPhone();
    void configure();
    void start();
    void suspend();
    void clear();
    /// By the phone, by BlueZ, which forgets it, or by the loss of its link.
    void hangUp();
    /// All of it, from any state; ends idle.
    void wholeStream();
    void secondPhone();

    // Music and those who listen to it.
    /// Some packets are damaged at times.
    void play();
    void swapClients();
    void clientLeaves();
    /// It goes on reading in time, or at the end of the stream, or when packets have been dropped.
    void slowClient();
    void clientsComeAndGo();
    void selectBluetooth();
    void playerFault();

    // What BlueZ does.
    void removeAdapter();
    void restartBluez();
    // One of the methods that the daemon calls is not answered at once, or only when it is too late.
    void slowName();
    void slowAcquire();
    void slowDisconnect();
    void slowRename();
    void slowSetUp();

private:
    Phone &phone() { return *phones_[who_]; }
    QString adapterPath() const { return QString("/org/bluez/hci%1").arg(adapterNumber_); }
    /// As it stands in a request to the player.
    QString toldName() const;
    void makePhones();
    void choosePhone() { who_ = static_cast<size_t>(random_.below(static_cast<int>(phones_.size()))); }

    /// The player has to be told the state of the model as it is now.
    void oweStatus();
    /// Everything has arrived where it should.
    void settle();
    /// Waits until the player has been told all that is owed to it, as `right` finds.
    void settlePlayer(const std::function<bool(const QStringList &told)> &right);

    /// The player has to be told of it.
    void phoneIs(State state);
    /// The music will be heard by those who wait, or by some who come now.
    void callClients();
    void streamIsActive();
    /// The stream, if there is one, ends with what `happens`: what was sent before is heard.
    void endStreamBy(const std::function<void()> &happens);
    /// The adapter is gone, and with it whoever was connected by it.
    void adapterIsGone();
    /// The daemon has set an adapter up, with new endpoints.
    void adapterIsThere();

    /// Calls of `method` to BlueZ are not answered from now on; they wait in `held_`.
    void hold(const QString &method);
    /// One has come, and the daemon goes on.
    void awaitHeld();
    void answerHeld();

    Board &board_;
    SoakReport &report_;
    SoakRandom &random_;
    SoakAudio audio_;
    const QList<SoakFormat> formats_ = soakFormats();

    State state_ = Idle;
    bool adapter_ = true;
    int adapterNumber_ = 0; ///< of hci0 and hci1
    QString speakerName_ = "Kitchen";
    std::array<std::unique_ptr<Phone>, 3> phones_;
    size_t who_ = 0; ///< of the phones, the one that is connected
    const SoakFormat *format_ = nullptr;
    QString heldMethod_;
    QList<QDBusMessage> held_;
    QElapsedTimer sinceHeld_;
    QStringList owed_;         ///< the requests that the player has to get, in order
    bool playerFails_ = false; ///< by then they may get lost, or come again and out of order
};

} // namespace sim

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

/// The board of a soak: phones, speaker and player, and a model of the daemon's expected state. Each step performs one
/// action and waits until it has completed. It then checks the requests to the player, the control interface and the
/// received audio against the model. Call a step only in the states that the table in main.cpp has for it.
class SoakBoard {
public:
    /// The state of the phone. Listening: it streams, and a client reads.
    enum State { Idle = 1, Connected = 2, Configured = 4, Streaming = 8, Listening = 16 };

    /// Starts the daemon.
    SoakBoard(Board &board, SoakReport &report, SoakRandom &random);

    State state() const { return state_ == Streaming && audio_.hasClient() ? Listening : state_; }

    // A phone and its stream.
    void connectPhone();
    void configure();
    void start();
    void suspend();
    void clear();
    /// Ends the connection: by the phone, by BlueZ removing the phone, or by loss of the link.
    void hangUp();
    /// Connects, configures, starts and hangs up. From any state; ends idle.
    void wholeStream();
    void secondPhone();

    // Audio and its clients.
    /// Sends packets; in some calls about half of them are damaged.
    void play();
    void swapClients();
    void disconnectClient();
    /// Pauses a client's reading. The client resumes in time, after the end of the stream, or after dropped packets.
    void slowClient();
    void connectBriefly();
    void selectBluetooth();
    void playerFault();

    // Actions of BlueZ.
    void removeAdapter();
    void restartBluez();
    // BlueZ answers one of the daemon's method calls late, or after it is no longer needed.
    void slowName();
    void slowAcquire();
    void slowDisconnect();
    void slowRename();
    void slowSetUp();

private:
    Phone &phone() { return *phones_[phoneIndex_]; }
    QString adapterPath() const { return QString("/org/bluez/hci%1").arg(adapterNumber_); }
    /// Returns the phone's name, percent-encoded as in a request to the player. Empty when no phone is connected.
    QString encodedName() const;
    void makePhones();
    void choosePhone() { phoneIndex_ = static_cast<size_t>(random_.below(static_cast<int>(phones_.size()))); }

    /// Expects a status notification to the player with the model's present state.
    void expectStatus();
    /// Waits until the control interface, the player and BlueZ have the state of the model.
    void settle();
    /// Waits until `isComplete` accepts the targets of the player's requests, then clears expected and received
    /// requests.
    void awaitRequests(const std::function<bool(const QStringList &targets)> &isComplete);

    /// Sets the state of the phone. Expects a status notification.
    void setState(State state);
    /// Sets the stream of SoakAudio. Connects a random number of clients, unless clients are pending.
    void connectSomeClients();
    void awaitActiveStream();
    /// Calls `cause`, which ends the stream. If one is active, expects its audio to be received to the last byte.
    void endStream(const std::function<void()> &cause);
    /// Updates the model after the adapter was removed, and with it the phone's connection.
    void onAdapterRemoved();
    /// Updates the model after the daemon has set up an adapter with new endpoints.
    void onAdapterReady();

    /// Delays the answers to `method` from now on. The calls wait in `delayedCalls_`.
    void delayAnswers(const QString &method);
    /// Waits for a delayed call. Expects that the daemon continues to serve meanwhile.
    void awaitDelayedCall();
    void answerDelayedCalls();

    Board &board_;
    SoakReport &report_;
    SoakRandom &random_;
    SoakAudio audio_;
    const QList<SoakFormat> formats_ = soakFormats();

    State state_ = Idle;
    bool adapter_ = true;
    int adapterNumber_ = 0; ///< 0: hci0, 1: hci1
    QString speakerName_ = "Kitchen";
    std::array<std::unique_ptr<Phone>, 3> phones_;
    size_t phoneIndex_ = 0; ///< the phone of the present or last connection
    const SoakFormat *format_ = nullptr;
    QString delayedMethod_;
    QList<QDBusMessage> delayedCalls_;
    QElapsedTimer sinceDelayed_;
    QStringList expectedRequests_; ///< targets of the player's next requests, in order
    bool playerFaulty_ = false;    ///< the player may lose requests, or receive them again and out of order
};

} // namespace sim

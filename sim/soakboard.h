#pragma once

#include "sim/board.h"
#include "sim/soakaudio.h"
#include "sim/soakmaterial.h"
#include "sim/soaknotices.h"
#include "sim/soakreport.h"

#include <array>
#include <memory>

namespace sim {

/// The board of a soak: its phones, its speaker and its player, and what the daemon has to make of them. Each step does
/// one thing, waits until it is through, and insists that the player was told of it, that the control interface says
/// the same, and that what was to be heard is heard. It returns whether it came out as it should; it is to be called
/// only in the states that the step's table in soak.cpp names.
class SoakBoard {
public:
    /// How far a phone has come.
    enum State { Idle = 1, Connected = 2, Configured = 4, Streaming = 8 };

    SoakBoard(SoakReport &report, quint32 seed);

    bool startDaemon();
    State state() const { return state_; }
    const Daemon &daemon() const { return board_.daemon; }
    SoakRandom &random() { return random_; }
    /// After each step: the player's bad times end, and the records of the simulation are forgotten.
    bool afterStep();
    /// Lets the phone and all clients go and the player be well.
    bool rest();

    // The life of a phone and its stream.
    bool connectPhone();
    bool configure();
    bool start();
    bool suspend();
    bool clear();
    bool hangUp();

    // Music and those who listen to it.
    bool play();
    bool swapClient();
    bool clientLeaves();
    bool slowClient();
    bool slowClientAtTheEnd();
    bool clientsComeAndGo();

    // The speaker's other processes.
    bool selectBluetooth();
    bool disconnectPhone();
    bool rename();

    // What BlueZ and strangers do.
    bool selectConfiguration();
    bool secondPhone();
    bool damagedPackets();
    bool emptyPacket();
    bool deafClient();
    bool loseLink();
    bool removeAdapter();
    bool crashBluez();
    bool restartBluez();
    bool restartBluezWithPhone();
    bool playerFault();

private:
    struct Name {
        QString alias;
        QString told; ///< as it stands in a request to the player
    };
    static const std::array<Name, 3> &names();

    bool insist(bool asItShouldBe, const QString &otherwise) { return report_.insist(asItShouldBe, otherwise); }
    void makePhones();
    /// The state of the model as it is now is what the player has to be told.
    void oweStatus();
    /// Everything has arrived where it should.
    bool settle();
    /// The phone is gone, and the stream with it.
    void phoneIsGone();
    bool endStream();
    bool sendTail();
    void bluezIsGone();
    void bluezIsBack();

    SoakReport &report_;
    SoakRandom random_;
    const QList<SoakFormat> formats_;
    Board board_;
    SoakNotices notices_;
    SoakAudio audio_;

    State state_ = Idle;
    bool adapter_ = true;
    int who_ = 0; ///< of the phones, the one that is connected
    std::array<std::unique_ptr<Phone>, 3> phones_;
    const SoakFormat *format_ = nullptr;
    int playerFaultSteps_ = 0; ///< left until the player is well
};

} // namespace sim

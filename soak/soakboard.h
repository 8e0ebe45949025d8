#pragma once

#include "sim/board.h"
#include "soak/heldcalls.h"
#include "soak/soakaudio.h"
#include "soak/soakmaterial.h"
#include "soak/soaknotices.h"
#include "soak/soakreport.h"

#include <QElapsedTimer>

#include <array>
#include <functional>
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
    /// From SBC to AAC, or back; a stream goes on in the other.
    bool switchCodec();

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
    bool secondAdapter();
    /// One of the methods that the daemon calls is not answered for a few steps, of which this one is the first.
    bool slowBluez();
    bool playerFault();

private:
    struct Name {
        QString alias;
        QString told; ///< as it stands in a request to the player
    };
    static const std::array<Name, 3> &names();

    bool insist(bool asItShouldBe, const QString &otherwise) { return report_.insist(asItShouldBe, otherwise); }
    void makePhones();
    Phone &phone() { return *phones_[static_cast<size_t>(who_)]; }
    QString adapterPath() const;
    /// Of the phone, as far as the daemon knows it; and as it stands in a request to the player.
    QString name() const;
    QString toldName() const;
    /// The state of the model as it is now is what the player has to be told.
    void oweStatus();
    /// Everything has arrived where it should.
    bool settle();
    bool settleAdapter();
    /// The daemon tracks the phone, and asks for its name.
    void phoneIsThere();
    bool authorize();
    bool configureAs(const SoakFormat &format);
    bool streamIsActive();
    /// `object` of BlueZ, the phone or its transport, has gone.
    void streamIsGone(const QString &object);
    void phoneIsGone();
    /// Waits until the phone has done what the speaker asked for.
    bool phoneLeaves();
    /// The stream, if there is one, ends with what `happens`: what was sent before is heard.
    bool endStreamBy(const std::function<void()> &happens);
    void adapterIsGone();
    /// The daemon sets an adapter up, with new endpoints.
    void adapterIsThere();
    void bluezIsGone();
    void bluezIsBack();
    /// BlueZ has been asked and does not answer; everything else goes on.
    bool goOnUnanswered();
    /// The calls that were held are answered, and what follows from it happens.
    bool answerHeld();
    /// The adapter goes, or BlueZ, and there is one again.
    bool newAdapter();

    SoakReport &report_;
    SoakRandom random_;
    const QList<SoakFormat> formats_;
    Board board_;
    SoakNotices notices_;
    SoakAudio audio_;

    State state_ = Idle;
    bool adapter_ = true;
    bool setUp_ = true;         ///< the daemon is through with setting it up
    int adapterNumber_ = 0;     ///< of hci0 and hci1
    bool otherAdapter_ = false; ///< of the two the other one is there as well
    QString speakerName_ = QStringLiteral("Kitchen");
    int who_ = 0; ///< of the phones, the one that is connected
    std::array<std::unique_ptr<Phone>, 3> phones_;
    const SoakFormat *format_ = nullptr;
    int playerFaultSteps_ = 0; ///< left until the player is well

    HeldCalls held_{board_.bluez};
    int heldSteps_ = 0; ///< left until they are answered
    QElapsedTimer sinceHeld_;
    bool nameAwaited_ = false;   ///< by the daemon, since the phone connected
    bool starting_ = false;      ///< the phone, and the stream is not acquired yet
    bool disconnecting_ = false; ///< the daemon has asked BlueZ to disconnect the phone
};

} // namespace sim

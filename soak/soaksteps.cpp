// SPDX-License-Identifier: MIT
// The steps of phones, the player and audio clients.

#include "soak/soakboard.h"

#include <QSet>

namespace sim {

namespace {

constexpr int MaxPackets = 1000; // audio of so many packets is well below the daemon's backlog limit for a client

QSet<QString> asSet(const QStringList &list)
{
    return {list.begin(), list.end()};
}

} // namespace

// --- Phones

void SoakBoard::connectPhone()
{
    choosePhone();
    phone().connect();
    setState(Connected);
    report_.expect(phone().authorize(), "the phone is not authorised");
    settle();
}

void SoakBoard::configure()
{
    format_ = &random_.oneOf(formats_);
    state_ = Configured; // without a status notification
    report_.expect(phone().configure(format_->codec, format_->configuration), "the configuration is refused");
    settle();
}

void SoakBoard::start()
{
    connectSomeClients();
    if (phone().socket() >= 0) // BlueZ returns this socket again, and it may already have packets
        audio_.send(random_.below(20));
    report_.expect(phone().requestStart(), "the phone cannot start");
    awaitActiveStream();
}

void SoakBoard::suspend()
{
    endStream([this] {
        phone().suspend();
        setState(Configured);
    });
}

void SoakBoard::clear()
{
    report_.expect(phone().clear(), "the configuration is not cleared");
    state_ = Connected; // without a status notification
    settle();
}

void SoakBoard::hangUp()
{
    const int way = random_.below(4);
    endStream([&] {
        if (way == 0) {
            if (!phone().transportPath().isEmpty())
                phone().clear();
            board_.bluez.removeObject(phone().path());
        } else if (way == 1 && state_ == Streaming) {
            audio_.settle();
            phone().loseLink();
        } else {
            phone().hangUp();
        }
        setState(Idle);
    });
}

void SoakBoard::wholeStream()
{
    if (state_ != Idle)
        hangUp();
    connectPhone();
    configure();
    start();
    hangUp();
}

void SoakBoard::secondPhone()
{
    Phone &second = *phones_[(phoneIndex_ + 1) % phones_.size()];
    second.connect();
    report_.expect(!second.authorize(), "a second phone is authorised");
    if (random_.oneIn(3)) {
        hangUp();
        report_.expect(!second.authorize(), "the second phone is authorised after the first one hung up");
    }
    second.disconnect();
    settle();
}

// --- Audio clients

void SoakBoard::play()
{
    if (!audio_.hasClient()) { // the player connects late
        audio_.settle();
        audio_.connectClients(1);
        audio_.settle();
    }
    const bool damage = random_.oneIn(4);
    audio_.send(1 + random_.below(MaxPackets), damage);
    audio_.check();
}

void SoakBoard::swapClients()
{
    audio_.send(random_.below(MaxPackets));
    audio_.check(); // before the swap, because a replaced client receives no further audio
    audio_.connectClients(1 + random_.below(3));
    audio_.settle();
    audio_.send(audio_.pendingClients() + random_.below(MaxPackets));
    audio_.check();
}

void SoakBoard::disconnectClient()
{
    audio_.disconnectClient();
    audio_.send(random_.below(MaxPackets));
}

void SoakBoard::slowClient()
{
    if (random_.oneIn(8)) {
        audio_.dropPackets();
        return;
    }
    audio_.pauseReading(true);
    audio_.send(random_.below(MaxPackets));
    const bool streamEnds = random_.oneIn(3);
    if (streamEnds) {
        phone().suspend();
        setState(Configured);
    }
    settle();
    audio_.pauseReading(false);
    if (streamEnds)
        audio_.expectEnd(false);
    else
        audio_.check();
}

void SoakBoard::connectBriefly()
{
    if (state_ == Streaming)
        audio_.settle(); // otherwise these clients would receive packets that the daemon has not read yet
    for (int i = random_.below(5); i >= 0; --i)
        report_.expect(Player().connectAudio(), "a client cannot connect");
    settle();
}

// --- The player

void SoakBoard::selectBluetooth()
{
    board_.control.call("SelectBluetooth");
    if (state_ == Streaming)
        expectedRequests_ << "/Play?url=Capture:bluez:bluetooth:" + format_->urlFormat + "&name=" + encodedName();
    settle();
}

void SoakBoard::playerFault()
{
    using Behaviour = Player::Behaviour;
    constexpr Behaviour Down = Behaviour::Answer;
    constexpr Behaviour Faults[] = {Down,
                                    Behaviour::KeepOpen,
                                    Behaviour::Late,
                                    Behaviour::Refuse,
                                    Behaviour::NeverAnswer,
                                    Behaviour::Garbage,
                                    Behaviour::CloseEarly};
    const Behaviour fault = random_.oneOf(Faults);
    playerFaulty_ = fault == Down || fault == Behaviour::Garbage;
    board_.player.setBehaviour(fault);
    if (fault == Down)
        board_.player.stopServing();
    wholeStream();
    if (random_.oneIn(2))
        wholeStream();

    const auto allArrived = [this] { return asSet(board_.player.targets()).contains(asSet(expectedRequests_)); };
    report_.expect(fault == Down || waitFor(allArrived), "the player did not receive all requests");

    board_.player.stopServing();       // closes the connections that hang
    settledDescriptors(board_.daemon); // wait until the daemon's retries of unanswered requests have failed
    board_.player.setBehaviour(Behaviour::Answer);
    report_.expect(board_.player.serve(), "the player cannot serve again");
    // Older requests may still arrive, but all of them before the request for a phone that is new here.
    Phone guest(board_.bluez, adapterPath() + "/dev_00_AA_01_09_00_42", "Guest");
    guest.connect();
    expectedRequests_ << "/BTPropertyChange?type=USB?adapter=true&connected=true&name=Guest&streaming=false";
    awaitRequests([this](const QStringList &targets) {
        return targets.endsWith(expectedRequests_.last()) && asSet(expectedRequests_).contains(asSet(targets));
    });
    playerFaulty_ = false;
    board_.bluez.removeObject(guest.path());
    setState(Idle);
    settle();
}

} // namespace sim

// SPDX-License-Identifier: MIT
// The steps of a soak that phones, the player and its clients take.

#include "soak/soakboard.h"

#include <QSet>

namespace sim {

namespace {

constexpr int MostPackets = 1000; // their audio is well below what is kept for a client that does not read

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
    phoneIs(Connected);
    report_.insist(phone().authorize(), "the phone is not authorised");
    settle();
}

void SoakBoard::configure()
{
    format_ = &random_.oneOf(formats_);
    state_ = Configured; // the player is not told
    report_.insist(phone().configure(format_->codec, format_->configuration), "the configuration is refused");
    settle();
}

void SoakBoard::start()
{
    callClients();
    if (phone().socket() >= 0) // BlueZ hands it out again, and it may hold packets already
        audio_.send(random_.below(20));
    report_.insist(phone().wantToStart(), "the phone cannot start");
    streamIsActive();
}

void SoakBoard::suspend()
{
    endStreamBy([this] {
        phone().suspend();
        phoneIs(Configured);
    });
}

void SoakBoard::clear()
{
    report_.insist(phone().clear(), "the configuration is not cleared");
    state_ = Connected; // the player is not told
    settle();
}

void SoakBoard::hangUp()
{
    const int way = random_.below(4);
    endStreamBy([&] {
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
        phoneIs(Idle);
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
    Phone &second = *phones_[(who_ + 1) % phones_.size()];
    second.connect();
    report_.insist(!second.authorize(), "a second phone is authorised");
    if (random_.oneIn(3)) {
        hangUp();
        report_.insist(!second.authorize(), "a second phone moves up");
    }
    second.disconnect();
    settle();
}

// --- Those who listen

void SoakBoard::play()
{
    if (!audio_.clientListens()) { // a player that comes late
        audio_.settle();
        audio_.connectClients(1);
        audio_.settle();
    }
    const bool damage = random_.oneIn(4);
    audio_.send(1 + random_.below(MostPackets), damage);
    audio_.check();
}

void SoakBoard::swapClients()
{
    audio_.send(random_.below(MostPackets));
    audio_.check(); // a client that is replaced hears no more than has been sent to it
    audio_.connectClients(1 + random_.below(3));
    audio_.settle();
    audio_.send(audio_.waiting() + random_.below(MostPackets));
    audio_.check();
}

void SoakBoard::clientLeaves()
{
    audio_.leave();
    audio_.send(random_.below(MostPackets));
}

void SoakBoard::slowClient()
{
    if (random_.oneIn(8)) {
        audio_.dropPackets();
        return;
    }
    audio_.pauseReading(true);
    audio_.send(random_.below(MostPackets));
    const bool streamEnds = random_.oneIn(3);
    if (streamEnds) {
        phone().suspend();
        phoneIs(Configured);
    }
    settle();
    audio_.pauseReading(false);
    if (streamEnds)
        audio_.ended(false);
    else
        audio_.check();
}

void SoakBoard::clientsComeAndGo()
{
    if (state_ == Streaming)
        audio_.settle(); // a packet that is still to be read would be theirs
    for (int i = random_.below(5); i >= 0; --i)
        report_.insist(Player().connectAudio(), "no client can connect");
    settle();
}

// --- The player

void SoakBoard::selectBluetooth()
{
    board_.control.call("SelectBluetooth");
    if (state_ == Streaming)
        owed_ << "/Play?url=Capture:bluez:bluetooth:" + format_->played + "&name=" + toldName();
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
    playerFails_ = fault == Down || fault == Behaviour::Garbage;
    board_.player.behave(fault);
    if (fault == Down)
        board_.player.stopServing();
    wholeStream();
    if (random_.oneIn(2))
        wholeStream();

    const auto allAreTold = [this] { return asSet(board_.player.targets()).contains(asSet(owed_)); };
    report_.insist(fault == Down || waitFor(allAreTold), "the player is not told everything");

    board_.player.stopServing();       // ends the connections that hang
    settledDescriptors(board_.daemon); // what was not answered has been sent again, in vain
    board_.player.behave(Behaviour::Answer);
    report_.insist(board_.player.serve(), "the player cannot serve again");
    // What was owed until now may still arrive, but not later than the news of a phone that was never there before.
    Phone guest(board_.bluez, adapterPath() + "/dev_00_AA_01_09_00_42", "Guest");
    guest.connect();
    owed_ << "/BTPropertyChange?type=USB?adapter=true&connected=true&name=Guest&streaming=false";
    settlePlayer(
        [this](const QStringList &told) { return told.endsWith(owed_.last()) && asSet(owed_).contains(asSet(told)); });
    playerFails_ = false;
    board_.bluez.removeObject(guest.path());
    phoneIs(Idle);
    settle();
}

} // namespace sim

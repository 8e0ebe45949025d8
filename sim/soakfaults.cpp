// The steps of a soak in which something goes wrong.

#include "sim/soakboard.h"

namespace sim {

bool SoakBoard::selectConfiguration()
{
    report_.cycle("configurations chosen for BlueZ");
    const QDBusMessage reply = board_.bluez.callEndpoint(0, QStringLiteral("SelectConfiguration"),
                                                         {QByteArray::fromHex("ffff0235")});
    return insist(reply.arguments() == QVariantList{QByteArray::fromHex("11160235")},
                  QStringLiteral("SelectConfiguration was answered with something else"))
        && settle();
}

bool SoakBoard::secondPhone()
{
    report_.injected("second phone");
    Phone &phone = *phones_[(static_cast<size_t>(who_) + 1) % phones_.size()];
    phone.connect();
    const bool refused = !phone.authorize();
    phone.disconnect();
    return insist(refused, QStringLiteral("a second phone is authorised")) && settle();
}

bool SoakBoard::damagedPackets()
{
    constexpr int MostPackets = 300;
    if (!audio_.clientListens())
        return play();
    return audio_.sendDamaged(random_.below(MostPackets)) && audio_.check();
}

bool SoakBoard::emptyPacket()
{
    return audio_.clientListens() ? audio_.sendEmpty() && audio_.check() : play();
}

bool SoakBoard::deafClient()
{
    if (!audio_.clientListens())
        return play();
    report_.injected("client that stops reading");
    return audio_.dropPackets() && audio_.send(random_.below(100)) && audio_.check();
}

bool SoakBoard::loseLink()
{
    report_.injected("link lost");
    if (!sendTail() || !audio_.settle())
        return false;
    phones_[static_cast<size_t>(who_)]->loseLink();
    phoneIsGone();
    oweStatus();
    return settle() && endStream();
}

bool SoakBoard::removeAdapter()
{
    report_.injected("adapter removed");
    board_.bluez.removeAdapter();
    adapter_ = false;
    oweStatus();
    if (!settle())
        return false;
    board_.bluez.addAdapter();
    bluezIsBack();
    return settle();
}

void SoakBoard::bluezIsGone()
{
    if (state_ != Idle) {
        phoneIsGone();
        oweStatus();
    }
    adapter_ = false;
    oweStatus();
    board_.bluez.crash();
    makePhones();
}

void SoakBoard::bluezIsBack()
{
    adapter_ = true;
    oweStatus();
    audio_.adapterIsNew();
}

bool SoakBoard::crashBluez()
{
    report_.injected("BlueZ crashed");
    const bool streaming = state_ == Streaming;
    if (streaming && !sendTail())
        return false;
    bluezIsGone();
    if (!settle() || (streaming && !endStream()))
        return false;
    board_.bluez.restart();
    board_.bluez.addAdapter();
    bluezIsBack();
    return settle();
}

bool SoakBoard::restartBluez()
{
    report_.injected("BlueZ restarted without a gap");
    const bool streaming = state_ == Streaming;
    if (streaming && !sendTail())
        return false;
    bluezIsGone();
    board_.bluez.restart();
    board_.bluez.addAdapter();
    bluezIsBack();
    return settle() && (!streaming || endStream());
}

bool SoakBoard::restartBluezWithPhone()
{
    report_.injected("BlueZ restarted, a phone there before us");
    const bool streaming = state_ == Streaming;
    if (streaming && !sendTail())
        return false;
    bluezIsGone();
    board_.bluez.restart();
    board_.bluez.addAdapter();
    who_ = random_.below(static_cast<int>(phones_.size()));
    Phone &phone = *phones_[static_cast<size_t>(who_)];
    phone.connect();
    bluezIsBack();
    state_ = Connected;
    oweStatus();
    return settle() && (!streaming || endStream())
        && insist(phone.authorize(), QStringLiteral("a phone that was there before us is not authorised"));
}

bool SoakBoard::playerFault()
{
    if (playerFaultSteps_ > 0)
        return true;
    using Behaviour = Player::Behaviour;
    static constexpr struct {
        const char *name;
        Behaviour behaviour;
    } faults[] = {
        {"player that keeps connections open", Behaviour::KeepOpen},
        {"player that answers late", Behaviour::Late},
        {"player that answers with an error", Behaviour::Refuse},
        {"player that never answers", Behaviour::NeverAnswer},
        {"player that answers garbage", Behaviour::Garbage},
        {"player that closes in mid-answer", Behaviour::CloseEarly},
        {"player that is down", Behaviour::Answer},
    };
    constexpr int Faults = sizeof faults / sizeof *faults;
    constexpr int MostSteps = 4;
    const auto &fault = faults[random_.below(Faults)];
    report_.injected(fault.name);
    playerFaultSteps_ = 1 + random_.between(1, MostSteps); // this one counts
    if (&fault == &faults[Faults - 1]) {
        notices_.setPlayerDown(true);
        board_.player.stopServing();
    } else {
        notices_.setPlayerIsAskedAgain(fault.behaviour == Behaviour::Garbage);
        board_.player.behave(fault.behaviour);
    }
    return settle();
}

} // namespace sim

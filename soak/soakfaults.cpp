// The steps of a soak in which something goes wrong.

#include "soak/soakboard.h"

namespace sim {

bool SoakBoard::selectConfiguration()
{
    if (!setUp_ && !answerHeld())
        return false;
    const QDBusMessage reply = board_.bluez.callEndpoint(0, QStringLiteral("SelectConfiguration"),
                                                         {QByteArray::fromHex("ffff0235")});
    return insist(reply.arguments() == QVariantList{QByteArray::fromHex("11160235")},
                  QStringLiteral("SelectConfiguration was answered with something else"))
        && settle();
}

bool SoakBoard::secondPhone()
{
    report_.injected("second phone");
    Phone &second = *phones_[(static_cast<size_t>(who_) + 1) % phones_.size()];
    second.connect();
    bool refused = !second.authorize();
    if (random_.oneIn(3)) { // the second one does not move up
        if (!hangUp())
            return false;
        refused = refused && !second.authorize();
    }
    second.disconnect();
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
    return endStreamBy([this] {
        audio_.settle();
        phone().loseLink();
        phoneIsGone();
    });
}

bool SoakBoard::playerFault()
{
    if (playerFaultSteps_ > 0 || held_.isHolding())
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

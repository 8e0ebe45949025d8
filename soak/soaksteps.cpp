// The steps of a soak in which nothing goes wrong: a phone's life, its stream, and those who listen.

#include "soak/soakboard.h"

namespace sim {

bool SoakBoard::connectPhone()
{
    report_.cycle("phones connected");
    who_ = random_.below(static_cast<int>(phones_.size()));
    phone().connect();
    phoneIsThere();
    return authorize() && settle();
}

bool SoakBoard::configure()
{
    return configureAs(formats_.at(random_.below(static_cast<int>(formats_.size()))));
}

bool SoakBoard::configureAs(const SoakFormat &format)
{
    if (!setUp_ && !answerHeld())
        return false;
    report_.cycle(format.codec == 0 ? "SBC configured" : "AAC configured");
    format_ = &format;
    state_ = Configured;
    return insist(phone().configure(format.codec, format.configuration), QStringLiteral("the configuration is refused"))
        && settle();
}

bool SoakBoard::start()
{
    constexpr int MostWaiting = 5;
    if (starting_ && random_.oneIn(2)) {
        phone().suspend();
        starting_ = false;
        held_.objectGone(phone().transportPath(), true); // as BlueZ does at a pause
        return settle();
    }
    audio_.follow(phone(), *format_);
    const int clients = random_.oneIn(8) ? 0 : random_.oneIn(6) ? random_.between(2, MostWaiting) : 1;
    if (audio_.waiting() == 0 && !audio_.connectClients(clients))
        return false;
    if (held_.holds("Acquire")) {
        starting_ = true;
        return insist(phone().wantToStart(), QStringLiteral("the phone cannot start")) && goOnUnanswered();
    }
    // A socket that BlueZ hands out again may hold packets already.
    if (phone().socket() >= 0 && !audio_.send(random_.below(20)))
        return false;
    return insist(phone().start(), QStringLiteral("the stream is not acquired")) && streamIsActive();
}

bool SoakBoard::streamIsActive()
{
    starting_ = false;
    state_ = Streaming;
    oweStatus();
    return settle() && audio_.send(audio_.waiting() + 1) && audio_.check();
}

bool SoakBoard::suspend()
{
    return endStreamBy([this] {
        phone().suspend();
        state_ = Configured;
        oweStatus();
    });
}

bool SoakBoard::clear()
{
    return endStreamBy([this] {
        const QString transport = phone().transportPath();
        insist(phone().clear(), QStringLiteral("the configuration is not cleared"));
        state_ = Connected; // the player is not told
        streamIsGone(transport);
    });
}

bool SoakBoard::switchCodec()
{
    report_.cycle("codec switched");
    const SoakFormat *next = format_;
    while (next->codec == format_->codec)
        next = &formats_.at(random_.below(static_cast<int>(formats_.size())));
    const bool streaming = state_ == Streaming;
    return clear() && configureAs(*next) && (!streaming || start());
}

bool SoakBoard::hangUp()
{
    report_.cycle(state_ == Streaming ? "hung up in mid-stream" : "hung up");
    const bool forgotten = random_.oneIn(4);
    return endStreamBy([&] {
        if (!forgotten) {
            phone().hangUp();
        } else {
            if (!phone().transportPath().isEmpty())
                phone().clear();
            board_.bluez.removeObject(phone().path());
        }
        phoneIsGone();
    });
}

bool SoakBoard::play()
{
    constexpr int MostPackets = 1500;
    if (!audio_.attached()) // a player that comes late
        return audio_.settle() && audio_.connectClients(1) && audio_.send(random_.below(MostPackets)) && audio_.check();
    return audio_.send(random_.below(MostPackets)) && audio_.check();
}

bool SoakBoard::swapClient()
{
    if (!audio_.attached())
        return play();
    report_.cycle("clients swapped in mid-stream");
    return audio_.swapClient() && audio_.send(random_.below(100)) && audio_.check();
}

bool SoakBoard::clientLeaves()
{
    if (!audio_.clientListens())
        return play();
    report_.injected("client left in mid-stream");
    return audio_.leave() && audio_.send(random_.below(100));
}

bool SoakBoard::slowClient()
{
    constexpr int MostPackets = 1000; // well below what is kept for it
    if (!audio_.clientListens())
        return play();
    report_.injected("slow client");
    audio_.pauseReading(true);
    if (!audio_.send(random_.below(MostPackets)) || !audio_.settle())
        return false;
    audio_.pauseReading(false);
    return audio_.check();
}

bool SoakBoard::slowClientAtTheEnd()
{
    constexpr int MostPackets = 1000;
    if (!audio_.clientListens())
        return suspend();
    report_.injected("slow client at the end of a stream");
    audio_.pauseReading(true);
    if (!audio_.send(random_.below(MostPackets)))
        return false;
    phone().suspend();
    state_ = Configured;
    oweStatus();
    if (!settle())
        return false;
    audio_.pauseReading(false);
    report_.cycle("streams");
    return audio_.endedForSlowClient();
}

bool SoakBoard::clientsComeAndGo()
{
    // A packet that is still to be read would be theirs.
    return (state_ != Streaming || audio_.settle()) && audio_.connectAndLeave(random_.between(1, 5)) && settle();
}

} // namespace sim

// The steps of a soak in which nothing goes wrong: a phone's life, its stream, and those who listen.

#include "sim/soakboard.h"

namespace sim {

bool SoakBoard::connectPhone()
{
    report_.cycle("phones connected");
    who_ = random_.below(static_cast<int>(phones_.size()));
    Phone &phone = *phones_[static_cast<size_t>(who_)];
    phone.connect();
    state_ = Connected;
    oweStatus();
    return settle() && insist(phone.authorize(), QStringLiteral("the phone is not authorised"));
}

bool SoakBoard::configure()
{
    format_ = &formats_.at(random_.below(static_cast<int>(formats_.size())));
    report_.cycle(format_->codec == 0 ? "SBC configured" : "AAC configured");
    Phone &phone = *phones_[static_cast<size_t>(who_)];
    state_ = Configured;
    return insist(phone.configure(format_->codec, format_->configuration),
                  QStringLiteral("the configuration is refused"))
        && settle();
}

bool SoakBoard::start()
{
    constexpr int MostWaiting = 5;
    Phone &phone = *phones_[static_cast<size_t>(who_)];
    audio_.follow(phone, *format_);
    const int clients = random_.oneIn(8) ? 0 : random_.oneIn(6) ? random_.between(2, MostWaiting) : 1;
    if (!audio_.connectClients(clients))
        return false;
    // A socket that BlueZ hands out again may hold packets already.
    if (phone.socket() >= 0 && !audio_.send(random_.below(20)))
        return false;
    if (!insist(phone.start(), QStringLiteral("the stream is not acquired")))
        return false;
    state_ = Streaming;
    oweStatus();
    return settle() && audio_.send(audio_.waiting() + 1) && audio_.check();
}

bool SoakBoard::suspend()
{
    if (!sendTail())
        return false;
    phones_[static_cast<size_t>(who_)]->suspend();
    state_ = Configured;
    oweStatus();
    return settle() && endStream();
}

bool SoakBoard::clear()
{
    state_ = Connected;
    format_ = nullptr;
    return insist(phones_[static_cast<size_t>(who_)]->clear(), QStringLiteral("the configuration is not cleared"))
        && settle();
}

bool SoakBoard::hangUp()
{
    const bool streaming = state_ == Streaming;
    report_.cycle(streaming ? "hung up in mid-stream" : "hung up");
    if (streaming && !sendTail())
        return false;
    phones_[static_cast<size_t>(who_)]->hangUp();
    phoneIsGone();
    oweStatus();
    return settle() && (!streaming || endStream());
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
    phones_[static_cast<size_t>(who_)]->suspend();
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

// SPDX-License-Identifier: MIT
// What every step of a soak rests on: the model of the board, and that the daemon says the same.

#include "soak/soakboard.h"

#include "bluez/names.h"

#include <QUrl>

namespace sim {

namespace {

// A player that never answers holds requests up: five are under way at a time, and each is given up after 10 s.
constexpr int PlayerMs = 60'000;

// The endpoints of an adapter, one for each codec.
constexpr int Endpoints = 2;

const std::array<QString, 3> Names{"Anna", "Bob & Co's phone", "Zoë 100%"};

} // namespace

SoakBoard::SoakBoard(Board &board, SoakReport &report, SoakRandom &random)
    : board_(board), report_(report), random_(random), audio_(board, report, random)
{
    makePhones();
    board_.daemon.start(board_.bus.address());
    oweStatus();
    settle();
}

QString SoakBoard::toldName() const
{
    return state_ == Idle ? QString() : QString(QUrl::toPercentEncoding(Names[who_], "&'"));
}

void SoakBoard::makePhones()
{
    for (size_t i = 0; i < phones_.size(); ++i) {
        const QString path = adapterPath() + QString("/dev_00_AA_01_0%1_00_42").arg(i);
        phones_[i] = std::make_unique<Phone>(board_.bluez, path, Names[i]);
    }
}

void SoakBoard::oweStatus()
{
    const auto text = [](bool value) { return QLatin1String(value ? "true" : "false"); };
    owed_ << QString("/BTPropertyChange?type=USB?adapter=%1&connected=%2&name=%3&streaming=%4")
                 .arg(text(adapter_), text(state_ != Idle), toldName(), text(state_ == Streaming));
}

void SoakBoard::settle()
{
    const QVariantMap properties{
        {"AdapterPresent", adapter_},
        {"Connected", state_ != Idle},
        {"Streaming", state_ == Streaming},
        {"Name", state_ == Idle ? QString() : Names[who_]},
    };
    for (auto due = properties.begin(); due != properties.end(); ++due)
        report_.await([&] { return board_.control.property(due.key()) == due.value(); },
                      due.key() + " is not \"" + due.value().toString() + '"');
    if (!playerFails_) {
        settlePlayer([this](const QStringList &told) { return told == owed_; });
    }
    if (!adapter_)
        return;
    report_.await([this] { return board_.bluez.endpoints().size() == Endpoints; }, "not all endpoints are registered");
    const auto alias = [this] {
        return board_.bluez.property(adapterPath(), bluez::AdapterInterface, bluez::AliasProperty).toString();
    };
    report_.await([&] { return alias() == speakerName_ + " BT"; }, "the adapter has another name than the speaker");
}

void SoakBoard::settlePlayer(const std::function<bool(const QStringList &)> &right)
{
    const QString list = "\n        ";
    const bool isRight = waitFor([&] { return right(board_.player.targets()); }, PlayerMs);
    report_.insist(isRight,
                   "the player was to be told" + list + owed_.join(list) + "\n    but was told" + list
                       + board_.player.targets().join(list));
    report_.count("requests to the player compared", owed_.size());
    owed_.clear();
    board_.player.forgetRequests();
}

// --- Phones

void SoakBoard::phoneIs(State state)
{
    state_ = state;
    oweStatus();
}

void SoakBoard::callClients()
{
    constexpr int MostWaiting = 5;
    audio_.follow(phone(), *format_);
    if (audio_.waiting() == 0)
        audio_.connectClients(random_.oneIn(8) ? 0 : random_.oneIn(6) ? 1 + random_.below(MostWaiting) : 1);
}

void SoakBoard::streamIsActive()
{
    report_.await([this] { return phone().isActive(); }, "the stream is not acquired");
    phoneIs(Streaming);
    settle();
    audio_.send(audio_.waiting() + 1);
    audio_.check();
}

void SoakBoard::endStreamBy(const std::function<void()> &happens)
{
    constexpr int MostOnTheWay = 10; // their audio fits into a client's socket
    const bool streaming = state_ == Streaming;
    if (streaming) {
        audio_.check();
        audio_.send(random_.below(MostOnTheWay));
    }
    happens();
    settle();
    if (streaming)
        audio_.ended();
}

// --- Adapters

void SoakBoard::adapterIsGone()
{
    if (state_ != Idle)
        phoneIs(Idle);
    makePhones();
    adapter_ = false;
    oweStatus();
}

void SoakBoard::adapterIsThere()
{
    adapter_ = true;
    oweStatus();
    audio_.adapterIsNew();
}

} // namespace sim

// SPDX-License-Identifier: MIT
// The common functions of all steps: the model of the board, and the comparison of the daemon with it.

#include "soak/soakboard.h"

#include "bluez/names.h"

#include <QUrl>

namespace sim {

namespace {

// A player that never answers delays requests: the daemon has up to five in progress, each with a timeout of 10 s.
constexpr int PlayerTimeoutMs = 60'000;

// Number of endpoints of an adapter, one for each codec.
constexpr int Endpoints = 2;

const std::array<QString, 3> Names{"Anna", "Bob & Co's phone", "Zoë 100%"};

} // namespace

SoakBoard::SoakBoard(Board &board, SoakReport &report, SoakRandom &random)
    : board_(board), report_(report), random_(random), audio_(board, report, random)
{
    makePhones();
    board_.daemon.start(board_.bus.address());
    expectStatus();
    settle();
}

QString SoakBoard::encodedName() const
{
    return state_ == Idle ? QString() : QString(QUrl::toPercentEncoding(Names[phoneIndex_], "&'"));
}

void SoakBoard::makePhones()
{
    for (size_t i = 0; i < phones_.size(); ++i) {
        const QString path = adapterPath() + QString("/dev_00_AA_01_0%1_00_42").arg(i);
        phones_[i] = std::make_unique<Phone>(board_.bluez, path, Names[i]);
    }
}

void SoakBoard::expectStatus()
{
    const auto text = [](bool value) { return QLatin1String(value ? "true" : "false"); };
    expectedRequests_ << QString("/BTPropertyChange?type=USB?adapter=%1&connected=%2&name=%3&streaming=%4")
                             .arg(text(adapter_), text(state_ != Idle), encodedName(), text(state_ == Streaming));
}

void SoakBoard::settle()
{
    const QVariantMap properties{
        {"AdapterPresent", adapter_},
        {"Connected", state_ != Idle},
        {"Streaming", state_ == Streaming},
        {"Name", state_ == Idle ? QString() : Names[phoneIndex_]},
    };
    for (auto due = properties.begin(); due != properties.end(); ++due)
        report_.await([&] { return board_.control.property(due.key()) == due.value(); },
                      due.key() + " is not \"" + due.value().toString() + '"');
    if (!playerFaulty_) {
        awaitRequests([this](const QStringList &targets) { return targets == expectedRequests_; });
    }
    if (!adapter_)
        return;
    report_.await([this] { return board_.bluez.endpoints().size() == Endpoints; }, "not all endpoints are registered");
    const auto alias = [this] {
        return board_.bluez.property(adapterPath(), bluez::AdapterInterface, bluez::AliasProperty).toString();
    };
    report_.await([&] { return alias() == speakerName_ + " BT"; }, "the adapter has another name than the speaker");
}

void SoakBoard::awaitRequests(const std::function<bool(const QStringList &)> &isComplete)
{
    const QString list = "\n        ";
    const bool complete = waitFor([&] { return isComplete(board_.player.targets()); }, PlayerTimeoutMs);
    report_.expect(complete,
                   "expected these requests to the player" + list + expectedRequests_.join(list)
                       + "\n    but the player received" + list + board_.player.targets().join(list));
    report_.count("requests to the player compared", expectedRequests_.size());
    expectedRequests_.clear();
    board_.player.clearRequests();
}

// --- Phones

void SoakBoard::setState(State state)
{
    state_ = state;
    expectStatus();
}

void SoakBoard::connectSomeClients()
{
    constexpr int MaxPending = 5;
    audio_.setStream(phone(), *format_);
    if (audio_.pendingClients() == 0)
        audio_.connectClients(random_.oneIn(8) ? 0 : random_.oneIn(6) ? 1 + random_.below(MaxPending) : 1);
}

void SoakBoard::awaitActiveStream()
{
    report_.await([this] { return phone().isActive(); }, "the stream is not acquired");
    setState(Streaming);
    settle();
    audio_.send(audio_.pendingClients() + 1);
    audio_.check();
}

void SoakBoard::endStream(const std::function<void()> &cause)
{
    constexpr int MaxInFlight = 10; // the audio of so many packets fits into a client's socket
    const bool streaming = state_ == Streaming;
    if (streaming) {
        audio_.check();
        audio_.send(random_.below(MaxInFlight));
    }
    cause();
    settle();
    if (streaming)
        audio_.expectEnd();
}

// --- Adapters

void SoakBoard::onAdapterRemoved()
{
    if (state_ != Idle)
        setState(Idle);
    makePhones();
    adapter_ = false;
    expectStatus();
}

void SoakBoard::onAdapterReady()
{
    adapter_ = true;
    expectStatus();
    audio_.resetDecoder();
}

} // namespace sim

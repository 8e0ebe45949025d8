// SPDX-License-Identifier: MIT
// The steps in which BlueZ loses adapters, crashes and restarts, or answers late.

#include "bluez/names.h"
#include "soak/soakboard.h"

#include <utility>

namespace sim {

namespace {

// The daemon continues within milliseconds. A daemon that waits for BlueZ takes seconds.
constexpr int MaxLatencyMs = 1000;

} // namespace

void SoakBoard::delayAnswers(const QString &method)
{
    delayedMethod_ = method;
    sinceDelayed_.start();
    board_.bluez.intercept(method, [this](const QDBusMessage &call) {
        delayedCalls_.append(call);
        return true;
    });
}

void SoakBoard::awaitDelayedCall()
{
    report_.await([this] { return !delayedCalls_.isEmpty(); }, "the daemon does not call " + delayedMethod_);
    board_.control.property("AdapterPresent"); // the daemon must answer while BlueZ does not
    report_.expect(!sinceDelayed_.hasExpired(MaxLatencyMs), "the daemon blocks until BlueZ answers " + delayedMethod_);
}

void SoakBoard::answerDelayedCalls()
{
    board_.bluez.stopIntercepting(delayedMethod_);
    for (const QDBusMessage &call : std::exchange(delayedCalls_, {}))
        board_.bluez.answer(call);
}

void SoakBoard::removeAdapter()
{
    const QString gone = adapterPath();
    const bool takenOver = random_.oneIn(2);
    if (takenOver) {
        adapterNumber_ = 1 - adapterNumber_;
        board_.bluez.addAdapter(adapterPath());
    }
    endStream([&] {
        if (state_ != Idle && random_.oneIn(2)) // without a signal for the phone
            board_.bluez.removeObject(phone().path(), {}, FakeBluez::Announce::No);
        board_.bluez.removeAdapter(gone);
        onAdapterRemoved();
        if (!takenOver)
            board_.bluez.addAdapter(adapterPath());
        onAdapterReady();
    });
}

void SoakBoard::restartBluez()
{
    endStream([this] { // crash and restart before the daemon sees either
        board_.bluez.crash();
        onAdapterRemoved();
        board_.bluez.restart();
        board_.bluez.addAdapter(adapterPath());
        adapter_ = true;
        if (random_.oneIn(2)) {
            choosePhone();
            phone().connect();
            setState(
                Connected); // before onAdapterReady(), because the daemon has the name before it has set up the adapter
        }
        onAdapterReady();
    });
    report_.expect(state_ == Idle || phone().authorize(), "a phone that connected before the set-up is not authorised");
}

// --- Late answers

void SoakBoard::slowName()
{
    delayAnswers("Get");
    choosePhone();
    phone().connect();
    awaitDelayedCall();
    report_.expect(board_.control.property("Connected").toBool(), "the phone is not connected without a name");
    if (random_.oneIn(2)) {
        answerDelayedCalls();
        setState(Connected);
    } else { // disconnected before the answer
        phone().hangUp();
        setState(Idle);
        settle();
        answerDelayedCalls();
    }
    settle();
}

void SoakBoard::slowAcquire()
{
    connectSomeClients();
    delayAnswers("Acquire");
    report_.expect(phone().requestStart(), "the phone cannot start");
    awaitDelayedCall();
    if (random_.oneIn(2)) {
        audio_.send(random_.below(20));
        answerDelayedCalls();
        awaitActiveStream();
    } else { // paused before the answer
        phone().suspend();
        settle();
        answerDelayedCalls();
        settle();
    }
}

void SoakBoard::slowDisconnect()
{
    delayAnswers("Disconnect");
    board_.control.setProperty("Connected", false);
    awaitDelayedCall();
    settle();
    endStream([&] {
        answerDelayedCalls();
        setState(Idle);
    });
}

void SoakBoard::slowRename()
{
    delayAnswers("Set");
    speakerName_ = QString("Room %1").arg(random_.below(1000));
    writePlayerName(speakerName_.toLatin1() + '\n');
    board_.control.call("ResetAlias");
    awaitDelayedCall();
    if (state_ == Streaming)
        audio_.check();
    answerDelayedCalls();
    settle();
}

void SoakBoard::slowSetUp()
{
    constexpr const char *Methods[] = {"GetManagedObjects", "Set", "RegisterAgent", "RequestDefaultAgent",
                                       "RegisterEndpoint"};
    const QString method = random_.oneOf(Methods);
    const auto crash = [this] {
        board_.bluez.crash();
        delayedCalls_.clear(); // never answered
        onAdapterRemoved();
    };
    const auto comeBack = [&] {
        board_.bluez.restart();
        delayAnswers(method);
        board_.bluez.addAdapter(adapterPath(), FakeBluez::Announce::No);
        awaitDelayedCall();
    };
    endStream(crash);
    comeBack();
    if (board_.control.property("AdapterPresent").toBool() && random_.oneIn(2)) { // crashes before it has answered
        crash();
        settle();
        comeBack();
    }
    answerDelayedCalls();
    onAdapterReady();
    settle();
}

} // namespace sim

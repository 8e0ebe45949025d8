// SPDX-License-Identifier: MIT
// The steps of a soak that BlueZ takes: it loses adapters, ends and comes back, and answers late.

#include "bluez/names.h"
#include "soak/soakboard.h"

#include <utility>

namespace sim {

namespace {

// The daemon goes on within milliseconds; one that waits for BlueZ takes seconds.
constexpr int LatestMs = 1000;

} // namespace

void SoakBoard::hold(const QString &method)
{
    heldMethod_ = method;
    sinceHeld_.start();
    board_.bluez.intercept(method, [this](const QDBusMessage &call) {
        held_.append(call);
        return true;
    });
}

void SoakBoard::awaitHeld()
{
    report_.await([this] { return !held_.isEmpty(); }, "the daemon does not call " + heldMethod_);
    board_.control.property("AdapterPresent"); // it answers while it waits
    report_.insist(!sinceHeld_.hasExpired(LatestMs), "the daemon stands still until BlueZ answers " + heldMethod_);
}

void SoakBoard::answerHeld()
{
    board_.bluez.stopIntercepting(heldMethod_);
    for (const QDBusMessage &call : std::exchange(held_, {}))
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
    endStreamBy([&] {
        if (state_ != Idle && random_.oneIn(2)) // the phone's own end
            board_.bluez.removeObject(phone().path(), {}, FakeBluez::Announce::Quietly);
        board_.bluez.removeAdapter(gone);
        adapterIsGone();
        if (!takenOver)
            board_.bluez.addAdapter(adapterPath());
        adapterIsThere();
    });
}

void SoakBoard::restartBluez()
{
    endStreamBy([this] { // without a gap
        board_.bluez.crash();
        adapterIsGone();
        board_.bluez.restart();
        board_.bluez.addAdapter(adapterPath());
        adapter_ = true;
        if (random_.oneIn(2)) {
            choosePhone();
            phone().connect();
            phoneIs(Connected); // its name is there long before the adapter has been set up
        }
        adapterIsThere();
    });
    report_.insist(state_ == Idle || phone().authorize(), "a phone that was there before us is not authorised");
}

// --- Late answers

void SoakBoard::slowName()
{
    hold("Get");
    choosePhone();
    phone().connect();
    awaitHeld();
    report_.insist(board_.control.property("Connected").toBool(), "the phone is not connected without a name");
    if (random_.oneIn(2)) {
        answerHeld();
        phoneIs(Connected);
    } else { // gone before the answer comes
        phone().hangUp();
        phoneIs(Idle);
        settle();
        answerHeld();
    }
    settle();
}

void SoakBoard::slowAcquire()
{
    callClients();
    hold("Acquire");
    report_.insist(phone().wantToStart(), "the phone cannot start");
    awaitHeld();
    if (random_.oneIn(2)) {
        audio_.send(random_.below(20));
        answerHeld();
        streamIsActive();
    } else { // paused before the answer comes
        phone().suspend();
        settle();
        answerHeld();
        settle();
    }
}

void SoakBoard::slowDisconnect()
{
    hold("Disconnect");
    board_.control.setProperty("Connected", false);
    awaitHeld();
    settle();
    endStreamBy([&] {
        answerHeld();
        phoneIs(Idle);
    });
}

void SoakBoard::slowRename()
{
    hold("Set");
    speakerName_ = QString("Room %1").arg(random_.below(1000));
    writePlayerName(speakerName_.toLatin1() + '\n');
    board_.control.call("ResetAlias");
    awaitHeld();
    if (state_ == Streaming)
        audio_.check();
    answerHeld();
    settle();
}

void SoakBoard::slowSetUp()
{
    constexpr const char *Methods[] = {"GetManagedObjects", "Set", "RegisterAgent", "RequestDefaultAgent",
                                       "RegisterEndpoint"};
    const QString method = random_.oneOf(Methods);
    const auto crash = [this] {
        board_.bluez.crash();
        held_.clear(); // they are never answered
        adapterIsGone();
    };
    const auto comeBack = [&] {
        board_.bluez.restart();
        hold(method);
        board_.bluez.addAdapter(adapterPath(), FakeBluez::Announce::Quietly);
        awaitHeld();
    };
    endStreamBy(crash);
    comeBack();
    if (board_.control.property("AdapterPresent").toBool() && random_.oneIn(2)) { // dies with the answer owed
        crash();
        settle();
        comeBack();
    }
    answerHeld();
    adapterIsThere();
    settle();
}

} // namespace sim

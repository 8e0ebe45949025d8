// The steps of a soak in which adapters or BlueZ come and go, or BlueZ does not answer.

#include "bluez/names.h"
#include "soak/soakboard.h"

#include <iterator>

namespace sim {

namespace {

constexpr int PatienceMs = 30'000;

}

bool SoakBoard::secondAdapter()
{
    if (!adapter_) // it would not be the second
        return answerHeld();
    const QString path = QStringLiteral("/org/bluez/hci%1").arg(1 - adapterNumber_);
    if (otherAdapter_)
        board_.bluez.removeAdapter(path);
    else
        board_.bluez.addAdapter(path);
    otherAdapter_ = !otherAdapter_;
    return settle();
}

bool SoakBoard::removeAdapter()
{
    if (!adapter_)
        return answerHeld();
    report_.injected(state_ == Streaming ? "adapter removed in mid-stream" : "adapter removed");
    const bool unannounced = random_.oneIn(2);
    const bool takenOver = otherAdapter_;
    const bool ended = endStreamBy([&] {
        if (state_ != Idle && unannounced) // the phone's own end
            board_.bluez.removeObject(phone().path(), {}, FakeBluez::Announce::Quietly);
        board_.bluez.removeAdapter(adapterPath());
        held_.objectGone(bluez::RootPath, random_.oneIn(2));
        if (state_ != Idle)
            phoneIsGone();
        adapterIsGone();
        if (takenOver) {
            report_.cycle("second adapter took over");
            adapterNumber_ = 1 - adapterNumber_;
            otherAdapter_ = false;
            if (!held_.holds("GetManagedObjects"))
                adapterIsThere();
        }
        makePhones();
    });
    if (!ended || takenOver)
        return ended;
    board_.bluez.addAdapter(adapterPath());
    adapterIsThere();
    return settle();
}

void SoakBoard::adapterIsGone()
{
    adapter_ = false;
    setUp_ = false;
    oweStatus();
}

void SoakBoard::adapterIsThere()
{
    adapter_ = true;
    setUp_ = !held_.holds("Set") && !held_.holds("RegisterAgent") && !held_.holds("RequestDefaultAgent")
        && !held_.holds("RegisterEndpoint");
    if (setUp_)
        oweStatus();
    audio_.adapterIsNew();
}

void SoakBoard::bluezIsGone()
{
    held_.bluezGone();
    if (state_ != Idle)
        phoneIsGone();
    if (adapter_)
        adapterIsGone();
    board_.bluez.crash();
    adapterNumber_ = 0;
    otherAdapter_ = false;
    makePhones();
}

void SoakBoard::bluezIsBack()
{
    board_.bluez.restart();
    board_.bluez.addAdapter(adapterPath());
}

bool SoakBoard::crashBluez()
{
    report_.injected("BlueZ crashed");
    if (!endStreamBy([this] { bluezIsGone(); }))
        return false;
    bluezIsBack();
    adapterIsThere();
    return settle();
}

bool SoakBoard::restartBluez()
{
    report_.injected("BlueZ restarted without a gap");
    return endStreamBy([this] {
        bluezIsGone();
        bluezIsBack();
        adapterIsThere();
    });
}

bool SoakBoard::restartBluezWithPhone()
{
    report_.injected("BlueZ restarted, a phone there before us");
    return endStreamBy([this] {
               bluezIsGone();
               bluezIsBack();
               who_ = random_.below(static_cast<int>(phones_.size()));
               phone().connect();
               adapter_ = true;
               phoneIsThere(); // its name is there long before the adapter has been set up
               adapterIsThere();
           })
        && authorize();
}

bool SoakBoard::newAdapter()
{
    constexpr bool (SoakBoard::*Ways[])() = {&SoakBoard::removeAdapter, &SoakBoard::crashBluez,
                                             &SoakBoard::restartBluez, &SoakBoard::restartBluezWithPhone};
    return (this->*Ways[random_.below(static_cast<int>(std::size(Ways)))])();
}

bool SoakBoard::slowBluez()
{
    constexpr int MostSteps = 6;
    constexpr const char *OfSetUp[] = {"GetManagedObjects", "Set", "RegisterAgent", "RequestDefaultAgent",
                                       "RegisterEndpoint"};
    const struct {
        const char *method;
        int states;
        bool (SoakBoard::*take)(); ///< in which the daemon calls it
    } calls[] = {
        {"Get", Idle, &SoakBoard::connectPhone},
        {"Acquire", Configured, &SoakBoard::start},
        {"Disconnect", Connected | Configured | Streaming, &SoakBoard::disconnectPhone},
        {"Set", Idle | Connected | Configured | Streaming, &SoakBoard::rename},
        {OfSetUp[random_.below(static_cast<int>(std::size(OfSetUp)))], Idle | Connected | Configured | Streaming,
         &SoakBoard::newAdapter},
    };
    if (held_.isHolding() || playerFaultSteps_ > 0)
        return true;
    const auto some = [&] { return calls[random_.below(static_cast<int>(std::size(calls)))]; };
    auto call = some();
    while ((call.states & state_) == 0)
        call = some();
    report_.unanswered(call.method);
    heldSteps_ = 1 + random_.between(1, MostSteps); // this one counts
    sinceHeld_.start();
    held_.hold(QLatin1String(call.method));
    return (this->*call.take)();
}

bool SoakBoard::goOnUnanswered()
{
    return insist(waitFor([this] { return held_.arrived(); }, PatienceMs), QStringLiteral("BlueZ is not asked"))
        && (state_ != Streaming || audio_.check()) && settle();
}

bool SoakBoard::answerHeld()
{
    heldSteps_ = 0;
    if (!held_.isHolding())
        return true;
    if (disconnecting_)
        return endStreamBy([this] {
            held_.answer();
            phoneLeaves();
            phoneIsGone();
        });
    if (starting_ && !audio_.send(random_.below(20)))
        return false;
    held_.answer();
    if (!adapter_) {
        adapterIsThere();
    } else if (!setUp_) {
        setUp_ = true;
        oweStatus();
    }
    if (nameAwaited_) {
        nameAwaited_ = false;
        oweStatus();
    }
    if (starting_)
        return insist(waitFor([this] { return phone().isActive(); }, PatienceMs),
                      QStringLiteral("the stream is not acquired"))
            && streamIsActive();
    return settle();
}

} // namespace sim

#include "soak/soakboard.h"

#include "bluez/names.h"
#include "control/names.h"

#include <QCoreApplication>

namespace sim {

namespace {

constexpr int PatienceMs = 30'000;

// The endpoints of an adapter, one for each codec.
constexpr int Endpoints = 2;

// The daemon waits 12 s at most; the answers are to come before that.
constexpr int LongestHoldMs = 4000;

const char *text(bool value)
{
    return value ? "true" : "false";
}

} // namespace

const std::array<SoakBoard::Name, 3> &SoakBoard::names()
{
    static const std::array<Name, 3> names{{
        {QStringLiteral("Anna"), QStringLiteral("Anna")},
        {QStringLiteral("Bob & Co's phone"), QStringLiteral("Bob%20&%20Co's%20phone")},
        {QStringLiteral("Zoë 100%"), QStringLiteral("Zo%C3%AB%20100%25")},
    }};
    return names;
}

SoakBoard::SoakBoard(SoakReport &report, quint32 seed)
    : report_(report), random_(seed), formats_(soakFormats()), notices_(board_.player, report),
      audio_(board_, report, random_)
{
    QObject::connect(&board_.daemon, &Daemon::logLine, &board_.daemon,
                     [this](const QString &line) { report_.logLine(line); });
    makePhones();
}

bool SoakBoard::startDaemon()
{
    oweStatus();
    return insist(board_.startDaemon(), QStringLiteral("the daemon does not set the adapter up")) && settle();
}

void SoakBoard::makePhones()
{
    static const char *const addresses[] = {"00_AA_01_01_00_42", "00_AA_01_02_00_42", "00_AA_01_03_00_42"};
    for (size_t i = 0; i < phones_.size(); ++i)
        phones_[i] = std::make_unique<Phone>(
            board_.bluez, adapterPath() + QStringLiteral("/dev_") + QLatin1String(addresses[i]), names()[i].alias);
}

QString SoakBoard::adapterPath() const
{
    return QStringLiteral("/org/bluez/hci%1").arg(adapterNumber_);
}

QString SoakBoard::name() const
{
    return state_ == Idle || nameAwaited_ ? QString() : names()[static_cast<size_t>(who_)].alias;
}

QString SoakBoard::toldName() const
{
    return state_ == Idle || nameAwaited_ ? QString() : names()[static_cast<size_t>(who_)].told;
}

void SoakBoard::oweStatus()
{
    const bool connected = adapter_ && state_ != Idle && !nameAwaited_;
    const bool streaming = connected && state_ == Streaming;
    notices_.owe(QStringLiteral("/BTPropertyChange?type=USB?adapter=%1&connected=%2&name=%3&streaming=%4")
                     .arg(QLatin1String(text(adapter_)), QLatin1String(text(connected)),
                          connected ? toldName() : QString(), QLatin1String(text(streaming))));
}

bool SoakBoard::settle()
{
    const QList<QPair<QString, QVariant>> properties{
        {QStringLiteral("AdapterPresent"), adapter_},
        {QStringLiteral("Connected"), state_ != Idle},
        {QStringLiteral("Streaming"), state_ == Streaming},
        {QStringLiteral("Name"), name()},
    };
    for (const auto &property : properties) {
        QVariant is;
        waitFor([&] { return (is = board_.control.property(property.first)) == property.second; }, PatienceMs);
        if (!insist(is == property.second,
                    QStringLiteral("%1 is \"%2\", not \"%3\"")
                        .arg(property.first, is.toString(), property.second.toString())))
            return false;
    }
    return notices_.settle() && (!adapter_ || settleAdapter());
}

/// The adapter is set up, as far as BlueZ answers. The player may be down, and not be told.
bool SoakBoard::settleAdapter()
{
    // What the daemon has asked of BlueZ is there when a later answer to BlueZ is.
    QDBusMessage sync = QDBusMessage::createMethodCall(control::Service, control::ObjectPath,
                                                       bluez::PropertiesInterface, QStringLiteral("GetAll"));
    sync << QStringLiteral("org.kadobt.commands");
    insist(board_.bluez.call(sync).type() == QDBusMessage::ReplyMessage, QStringLiteral("the daemon does not answer"));
    QCoreApplication::processEvents();
    if (!setUp_)
        return insist(waitFor([this] { return held_.arrived(); }, PatienceMs), QStringLiteral("BlueZ is not asked"));
    const auto endpoints = [this] { return static_cast<int>(board_.bluez.endpoints().size()); };
    const auto alias = [this] {
        return board_.bluez.property(adapterPath(), bluez::AdapterInterface, bluez::AliasProperty).toString();
    };
    const QString due = speakerName_ + QStringLiteral(" BT");
    return insist(waitFor([&] { return endpoints() == Endpoints; }, PatienceMs),
                  QStringLiteral("%1 endpoints are registered").arg(endpoints()))
        && insist(held_.holds("Set") || waitFor([&] { return alias() == due; }, PatienceMs),
                  QStringLiteral("the adapter is not named \"%1\" but \"%2\"").arg(due, alias()));
}

bool SoakBoard::afterStep()
{
    board_.bluez.forgetCalls();
    board_.daemon.forgetLog();
    if (heldSteps_ > 0 && (--heldSteps_ == 0 || sinceHeld_.hasExpired(LongestHoldMs)) && !answerHeld())
        return false;
    if (playerFaultSteps_ > 0 && --playerFaultSteps_ == 0) {
        if (!notices_.settle())
            return false;
        board_.player.stopServing();       // ends the connections that hang
        settledDescriptors(board_.daemon); // what was not answered has been sent again, in vain
        notices_.setPlayerIsAskedAgain(false);
        board_.player.behave(Player::Behaviour::Answer);
        notices_.setPlayerDown(false);
        if (!insist(board_.player.serve(), QStringLiteral("the player cannot serve again")))
            return false;
    }
    return !report_.failed();
}

bool SoakBoard::rest()
{
    if (playerFaultSteps_ > 0) {
        playerFaultSteps_ = 1;
        if (!afterStep())
            return false;
    }
    if (!answerHeld() || (state_ != Idle && !(hangUp() && afterStep())))
        return false;
    // Clients that wait, or have left meanwhile, hold descriptors until a packet asks for them.
    return connectPhone() && configure() && start() && hangUp() && afterStep();
}

void SoakBoard::phoneIsThere()
{
    state_ = Connected;
    nameAwaited_ = held_.holds("Get");
    if (!nameAwaited_)
        oweStatus();
}

bool SoakBoard::authorize()
{
    return board_.bluez.agentPath().isEmpty()
        || insist(phone().authorize(), QStringLiteral("the phone is not authorised"));
}

void SoakBoard::streamIsGone(const QString &object)
{
    format_ = nullptr;
    starting_ = false;
    if (!held_.holds("Get")) // an answer that comes when the phone has long gone, and is back, or another is there
        held_.objectGone(object, random_.oneIn(2));
}

void SoakBoard::phoneIsGone()
{
    state_ = Idle;
    nameAwaited_ = false;
    disconnecting_ = false;
    streamIsGone(phone().path());
    oweStatus();
}

bool SoakBoard::phoneLeaves()
{
    const auto connected = [this] {
        return board_.bluez.property(phone().path(), bluez::DeviceInterface, bluez::ConnectedProperty).toBool();
    };
    return insist(waitFor([&] { return !connected(); }, PatienceMs), QStringLiteral("the phone is not disconnected"));
}

bool SoakBoard::endStreamBy(const std::function<void()> &happens)
{
    constexpr int MostOnTheWay = 10; // their audio fits into a client's socket
    const bool streaming = state_ == Streaming;
    if (streaming && !(audio_.check() && audio_.send(random_.below(MostOnTheWay))))
        return false;
    happens();
    if (!settle())
        return false;
    if (!streaming)
        return true;
    report_.cycle("streams");
    return audio_.ended();
}

// --- The speaker's other processes.

bool SoakBoard::selectBluetooth()
{
    board_.control.call(QStringLiteral("SelectBluetooth"));
    if (state_ == Streaming)
        notices_.owe(QStringLiteral("/Play?url=Capture:bluez:bluetooth:%1&name=%2").arg(format_->played, toldName()));
    return settle();
}

bool SoakBoard::disconnectPhone()
{
    report_.cycle("phones disconnected by the speaker");
    const auto disconnect = [this] { board_.control.setProperty(QStringLiteral("Connected"), false); };
    if (held_.holds("Disconnect")) {
        disconnecting_ = true;
        disconnect();
        return goOnUnanswered();
    }
    return endStreamBy([&] {
        disconnect();
        phoneLeaves();
        phoneIsGone();
    });
}

bool SoakBoard::rename()
{
    speakerName_ = QStringLiteral("Room %1").arg(random_.below(1000));
    writePlayerName(speakerName_.toLatin1() + '\n');
    board_.control.call(QStringLiteral("ResetAlias"));
    return adapter_ && held_.holds("Set") ? goOnUnanswered() : settle();
}

} // namespace sim

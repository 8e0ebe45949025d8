#include "sim/soakboard.h"

#include "bluez/names.h"

namespace sim {

namespace {

constexpr int PatienceMs = 30'000;

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
            board_.bluez, QStringLiteral("/org/bluez/hci0/dev_") + QLatin1String(addresses[i]), names()[i].alias);
}

void SoakBoard::oweStatus()
{
    const bool connected = adapter_ && state_ != Idle;
    const bool streaming = connected && state_ == Streaming;
    notices_.owe(QStringLiteral("/BTPropertyChange?type=USB?adapter=%1&connected=%2&name=%3&streaming=%4")
                     .arg(QLatin1String(text(adapter_)), QLatin1String(text(connected)),
                          connected ? names()[static_cast<size_t>(who_)].told : QString(),
                          QLatin1String(text(streaming))));
}

bool SoakBoard::settle()
{
    const QList<QPair<QString, QVariant>> properties{
        {QStringLiteral("AdapterPresent"), adapter_},
        {QStringLiteral("Connected"), state_ != Idle},
        {QStringLiteral("Streaming"), state_ == Streaming},
        {QStringLiteral("Name"), state_ == Idle ? QString() : names()[static_cast<size_t>(who_)].alias},
    };
    for (const auto &property : properties) {
        QVariant is;
        waitFor([&] { return (is = board_.control.property(property.first)) == property.second; }, PatienceMs);
        if (!insist(is == property.second,
                    QStringLiteral("%1 is \"%2\", not \"%3\"")
                        .arg(property.first, is.toString(), property.second.toString())))
            return false;
    }
    return notices_.settle();
}

bool SoakBoard::afterStep()
{
    board_.bluez.forgetCalls();
    board_.daemon.forgetLog();
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
    if (state_ != Idle && !(hangUp() && afterStep()))
        return false;
    // Clients that wait, or have left meanwhile, hold descriptors until a packet asks for them.
    return connectPhone() && configure() && start() && hangUp() && afterStep();
}

void SoakBoard::phoneIsGone()
{
    state_ = Idle;
    format_ = nullptr;
}

bool SoakBoard::endStream()
{
    report_.cycle("streams");
    return audio_.ended();
}

/// Packets that are still on their way when the stream ends.
bool SoakBoard::sendTail()
{
    constexpr int MostPackets = 10; // their audio fits into a client's socket
    return audio_.check() && audio_.send(random_.below(MostPackets));
}

// --- The speaker's other processes.

bool SoakBoard::selectBluetooth()
{
    report_.cycle("play requests asked for");
    board_.control.call(QStringLiteral("SelectBluetooth"));
    if (state_ == Streaming)
        notices_.owe(QStringLiteral("/Play?url=Capture:bluez:bluetooth:%1&name=%2")
                         .arg(format_->played, names()[static_cast<size_t>(who_)].told));
    return settle();
}

bool SoakBoard::disconnectPhone()
{
    report_.cycle("phones disconnected by the speaker");
    const bool streaming = state_ == Streaming;
    if (streaming && !sendTail())
        return false;
    const QString path = phones_[static_cast<size_t>(who_)]->path();
    phoneIsGone();
    oweStatus();
    board_.control.setProperty(QStringLiteral("Connected"), false);
    return insist(waitFor(
                      [&] {
                          return !board_.bluez.property(path, bluez::DeviceInterface, QStringLiteral("Connected"))
                                      .toBool();
                      },
                      PatienceMs),
                  QStringLiteral("the phone is not disconnected"))
        && settle() && (!streaming || endStream());
}

bool SoakBoard::rename()
{
    report_.cycle("speaker renamed");
    const QString name = QStringLiteral("Room %1").arg(random_.below(1000));
    writePlayerName(name.toLatin1() + '\n');
    board_.control.call(QStringLiteral("ResetAlias"));
    const auto alias = [this] {
        return board_.bluez
            .property(QStringLiteral("/org/bluez/hci0"), bluez::AdapterInterface, QStringLiteral("Alias"))
            .toString();
    };
    return insist(waitFor([&] { return alias() == name + QStringLiteral(" BT"); }, PatienceMs),
                  QStringLiteral("the adapter is not named after %1 but %2").arg(name, alias()))
        && settle();
}

} // namespace sim

// SPDX-License-Identifier: MIT
#include "sim/module.h"

#include <QFile>
#include <QTimer>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <termios.h>

namespace sim {

namespace {

const QString Device = QStringLiteral("/dev/ttymxc3");

} // namespace

Module::Module(QObject *parent) : QObject(parent)
{
    clock_.start();
    if (qEnvironmentVariable("KADO_SANDBOX") != QLatin1String("1"))
        qFatal("The simulated module creates /dev/ttymxc3. Run it in scripts/sandbox.");
    master_ = FileDescriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    char name[64];
    if (!master_.isValid() || ::grantpt(master_.get()) != 0 || ::unlockpt(master_.get()) != 0
        || ::ptsname_r(master_.get(), name, sizeof name) != 0)
        qFatal("no pseudo terminal");
    slave_ = FileDescriptor(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios line{};
    ::tcgetattr(slave_.get(), &line);
    ::cfmakeraw(&line); // a module does not echo
    ::tcsetattr(slave_.get(), TCSANOW, &line);
    QFile::remove(Device);
    if (!QFile::link(QFile::decodeName(name), Device))
        qFatal("cannot create /dev/ttymxc3");

    readable_ = std::make_unique<QSocketNotifier>(master_.get(), QSocketNotifier::Read);
    connect(readable_.get(), &QSocketNotifier::activated, this, &Module::readCommands);
    saved_ = settings;
}

Module::~Module()
{
    QFile::remove(Device);
}

void Module::phoneConnects(const QByteArray &address, const QByteArray &name)
{
    address_ = address;
    phoneName_ = name;
    playState_ = "STOPPED";
    sendLine("OPEN_OK A2DP " + address);
    sendLine("OPEN_OK AVRCP " + address);
}

void Module::reportPlayState(const QByteArray &event, const QByteArray &playState)
{
    playState_ = playState;
    sendLine(event + ' ' + address_);
}

void Module::phoneDisconnects()
{
    sendLine("CLOSE_OK AVRCP " + address_);
    sendLine("CLOSE_OK A2DP " + address_);
    address_.clear();
}

void Module::unplug()
{
    readable_.reset();
    slave_.reset();
    master_.reset();
}

QList<QByteArray> Module::commands(int from) const
{
    QList<QByteArray> all;
    for (const DialogueLine &line : dialogue_) {
        if (line.byDaemon)
            all << line.line;
    }
    return all.mid(from);
}

void Module::readCommands()
{
    char buffer[1024];
    const ssize_t size = ::read(master_.get(), buffer, sizeof buffer);
    if (size > 0)
        received_.append(buffer, static_cast<int>(size));
    for (auto end = received_.indexOf('\r'); end >= 0; end = received_.indexOf('\r')) {
        const QByteArray command = received_.left(end);
        received_.remove(0, end + 1);
        record(true, command);
        if (!behaviour.mute)
            QTimer::singleShot(behaviour.delayMs, this, [this, command] { execute(command); });
    }
}

void Module::execute(const QByteArray &command)
{
    const struct {
        const char *key;
        QByteArray &value;
    } keys[] = {
        {"name", settings.name},
        {"audio", settings.audio},
        {"i2s", settings.i2s},
        {"codec", settings.codec},
    };
    for (const auto &[key, value] : keys) {
        if (command == QByteArray("get ") + key) {
            sendLine(QByteArray(key).toUpper() + '=' + value);
            return;
        }
        const QByteArray set = QByteArray("set ") + key + '=';
        if (command.startsWith(set)) {
            value = command.mid(set.size());
            sendLine("OK");
            return;
        }
    }
    if (command == "write") {
        saved_ = settings;
        sendLine("OK");
    } else if (command == "reset") {
        settings = saved_;
        sendLine("Ready");
    } else if (command == "status") {
        if (address_.isEmpty()) {
            sendLine("STATE CONNECTABLE");
        } else {
            sendLine("STATE CONNECTED");
            sendLine("LINK 1 CONNECTED A2DP " + address_ + " SBC");
            sendLine("LINK 2 CONNECTED AVRCP " + address_ + ' ' + playState_);
        }
    } else if (command == "name " + address_) {
        sendLine("NAME " + address_ + ' ' + phoneName_);
    } else {
        sendLine("OK");
    }
}

void Module::sendLine(const QByteArray &line)
{
    record(false, line);
    if (behaviour.junk)
        sendRaw("\x7F?? " + behaviour.lineEnd + behaviour.lineEnd + "= =" + behaviour.lineEnd);
    sendRaw(line + behaviour.lineEnd);
}

void Module::record(bool byDaemon, const QByteArray &line)
{
    dialogue_ << DialogueLine{byDaemon, line, clock_.elapsed()};
    Q_EMIT lineTransferred(dialogue_.constLast());
}

void Module::sendRaw(const QByteArray &bytes)
{
    unsent_ += bytes;
    if (!sending_)
        sendFragments();
}

void Module::sendFragments()
{
    const auto size = behaviour.fragmentBytes > 0
        ? qMin(unsent_.size(), decltype(unsent_.size()){behaviour.fragmentBytes})
        : unsent_.size();
    const ssize_t sent = ::write(master_.get(), unsent_.constData(), static_cast<size_t>(size));
    if (sent > 0)
        unsent_.remove(0, static_cast<int>(sent));
    sending_ = !unsent_.isEmpty() && master_.isValid();
    if (sending_)
        QTimer::singleShot(1, this, &Module::sendFragments); // lets the daemon read each fragment by itself
}

} // namespace sim

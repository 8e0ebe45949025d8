// SPDX-License-Identifier: MIT
#include "bench/contestants.h"

#include "bench/fail.h"

#include <QDBusUnixFileDescriptor>
#include <QDir>
#include <QThread>

#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace bench {

namespace {

const QString PhonePath = QStringLiteral("/org/bluez/hci0/dev_00_AA_01_01_00_42");

// BlueALSA's audio thread sees an opened PCM some time after the reply, and drops earlier audio.
constexpr int SettleMs = 300;

void require(bool holds, const char *what)
{
    if (!holds)
        fail(QString::fromLatin1(what));
}

/// Creates a socket pair. Returns one end and puts the other into `other`.
FileDescriptor socketPair(int type, FileDescriptor &other)
{
    int ends[2];
    require(::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) == 0, "no socket pair");
    other = FileDescriptor(ends[1]);
    return FileDescriptor(ends[0]);
}

/// Connects a new client to the daemon's local audio socket.
FileDescriptor connectAudio()
{
    FileDescriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(QDir::temp().filePath(QStringLiteral("bluetooth")));
    require(static_cast<std::size_t>(path.size()) < sizeof address.sun_path, "the temporary folder's path is too long");
    std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
    require(::connect(client.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
            "cannot connect to the audio socket");
    return client;
}

} // namespace

QByteArray daemonProgram()
{
    return qEnvironmentVariableIsSet("KADO_BT") ? qgetenv("KADO_BT") : QByteArray(KADO_BT_BINARY);
}

void Contestant::warmUp()
{
    constexpr int Packets = 300;
    pump().run(Pump::Pace::BackToBack, Packets);
}

BareLoop::BareLoop(const Material &material)
{
    FileDescriptor in;
    FileDescriptor out;
    packets_ = socketPair(SOCK_SEQPACKET, in);
    pcm_ = socketPair(SOCK_STREAM, out);
    process_ = std::make_unique<Process>(QList<QByteArray>{KADO_BARELOOP}, QList<QByteArray>{},
                                         Process::Streams{in.get(), out.get(), -1});
    pump_ = std::make_unique<Pump>(*process_, packets_.get(), pcm_.get(), material);
}

BareLoop::~BareLoop() = default;

KadoBt::KadoBt(const Material &material, const QList<QByteArray> &environment)
    : phone_(board_.bluez, PhonePath, QStringLiteral("Anna")),
      process_({daemonProgram(), "--stderr"},
               QList<QByteArray>{"DBUS_SYSTEM_BUS_ADDRESS=" + board_.bus.address().toUtf8()} + environment)
{
    const auto notified = [this](int times) {
        return sim::waitFor([&] { return board_.player.requests().size() >= times; });
    };
    require(notified(1), "the daemon does not start");
    phone_.connect();
    require(notified(2) && phone_.authorize() && phone_.configure(material.format), "the phone is not accepted");
    pcm_ = connectAudio();
    require(phone_.start(static_cast<quint16>(material.mtu)) && notified(3), "the stream is not acquired");
    // Run the event loop once more, so that the player answers now: the loop does not run while packets are measured.
    require(board_.control.property(QStringLiteral("Streaming")).toBool(), "the daemon does not stream");
    pump_ = std::make_unique<Pump>(process_, phone_.socket(), pcm_.get(), material);
}

KadoBt::~KadoBt() = default;

BlueAlsa::BlueAlsa(const Material &material)
    : bluez_(bus_.address()), phone_(bluez_, PhonePath, QStringLiteral("Anna")),
      process_({"bluealsa", "-p", "a2dp-sink"}, {"DBUS_SYSTEM_BUS_ADDRESS=" + bus_.address().toUtf8()})
{
    bluez_.addAdapter();
    require(sim::waitFor([this] { return !bluez_.endpoints().isEmpty(); }), "BlueALSA does not start");
    phone_.connect();
    require(phone_.configure(material.format) && phone_.start(static_cast<quint16>(material.mtu)),
            "BlueALSA does not accept the phone");
    const QString pcm = QStringLiteral("/org/bluealsa/hci0/%1/a2dpsnk/source").arg(PhonePath.section(u'/', -1));
    const QVariantList fds = bluez_
                                 .call(QDBusMessage::createMethodCall(QStringLiteral("org.bluealsa"), pcm,
                                                                      QStringLiteral("org.bluealsa.PCM1"),
                                                                      QStringLiteral("Open")))
                                 .arguments();
    require(fds.size() == 2, "BlueALSA does not open the PCM");
    const auto own = [&fds](int index) {
        return FileDescriptor(
            ::fcntl(qvariant_cast<QDBusUnixFileDescriptor>(fds[index]).fileDescriptor(), F_DUPFD_CLOEXEC, 0));
    };
    pcm_ = own(0);
    control_ = own(1);
    ::fcntl(pcm_.get(), F_SETFL, ::fcntl(pcm_.get(), F_GETFL) & ~O_NONBLOCK);
    QThread::msleep(SettleMs);
    pump_ = std::make_unique<Pump>(process_, phone_.socket(), pcm_.get(), material);
}

BlueAlsa::~BlueAlsa() = default;

} // namespace bench

// SPDX-License-Identifier: MIT
#include "sim/demo.h"

#include "bluez/names.h"
#include "sim/board.h"
#include "sim/heardcheck.h"
#include "sim/recording.h"
#include "sim/sbcstream.h"
#include "sim/story.h"

#include <QDir>
#include <QElapsedTimer>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>

namespace sim {

namespace {

const QString PhonePath = QStringLiteral("/org/bluez/hci0/dev_00_AA_01_01_00_42");
const QString PhoneName = QStringLiteral("Anna's phone");

// A phone's encoder takes about as long from the stream's start to its first packet. It does not wait for a player.
constexpr int EncoderStartMs = 300;
// What the daemon, the local socket and the player have between them when the last packet has been sent.
constexpr int LastAudioMs = 2000;

volatile std::sig_atomic_t interrupted = 0;

/// The board with its phone, and the story that they tell. A step that does not come out as it should stops the story.
class Demo {
public:
    Demo(const DemoOptions &options, const Recording &recording);

    int run();

private:
    bool stream();
    bool stopStreaming();
    int hold();

    bool awaitStatus(bool connected, bool streaming);
    bool isAdapterSetUp() const;
    int sumUp();

    const DemoOptions &options_;
    const Recording &recording_;
    SbcFormat format_;
    QList<QByteArray> packets_;
    Board board_;
    Story story_;
    Phone phone_;
    QList<BluezCall> callsAtStart_;
    bool inTime_ = false; ///< the player connected before the first packet
};

Demo::Demo(const DemoOptions &options, const Recording &recording)
    : options_(options), recording_(recording), board_(options.busSocketPath), story_(board_.daemon, board_.player),
      phone_(board_.bluez, PhonePath, PhoneName)
{
    constexpr int Mtu = 672; // what BlueZ and a phone agree on
    format_.sampleRate = recording.sampleRate;
    packets_ = encodeSbc(recording.pcm, format_, Mtu);

    board_.player.connectWhenTold(true);
}

int Demo::run()
{
    const bool streaming = stream();
    if (streaming && options_.hold)
        return hold();
    if (streaming)
        stopStreaming();
    board_.daemon.stop();
    return sumUp();
}

/// From the start of the daemon to the phone's first packet, which is on its way when this returns true.
bool Demo::stream()
{
    story_.say("board", QStringLiteral("kado-bt starts"));
    if (!story_.insist(board_.startDaemon(), QStringLiteral("kado-bt did not set the adapter up")))
        return false;
    callsAtStart_ = board_.bluez.calls();
    if (!awaitStatus(false, false)
        || !story_.insist(isAdapterSetUp(), QStringLiteral("the adapter is not as it should be")))
        return false;
    story_.say("board",
               QStringLiteral("the adapter is \"%1\", discoverable without end, with %2 endpoints and an agent")
                   .arg(board_.bluez.property("/org/bluez/hci0", bluez::AdapterInterface, "Alias").toString())
                   .arg(board_.bluez.endpoints().size()));

    story_.say("phone", PhoneName + QStringLiteral(" pairs and connects"));
    phone_.connect();
    if (!awaitStatus(true, false))
        return false;
    if (!story_.insist(phone_.authorize(), QStringLiteral("the phone was not authorised"))
        || !story_.insist(phone_.configure(format_), QStringLiteral("the configuration was refused")))
        return false;
    story_.say("phone",
               QStringLiteral("is authorised for audio and has configured SBC: %1 Hz, joint stereo, %2 blocks, %3 "
                              "subbands, loudness, bitpool %4")
                   .arg(format_.sampleRate)
                   .arg(format_.blocks)
                   .arg(format_.subbands)
                   .arg(format_.bitpool));

    if (!story_.insist(phone_.start(), QStringLiteral("the stream was not acquired")))
        return false;
    QElapsedTimer sinceActive;
    sinceActive.start();
    story_.say("phone", QStringLiteral("has started the stream"));
    if (!awaitStatus(true, true) || !story_.selectBluetooth(board_.control, format_.sampleRate, PhoneName))
        return false;
    waitFor([this] { return board_.player.audioConnected(); },
            std::max(0, EncoderStartMs - static_cast<int>(sinceActive.elapsed())));
    inTime_ = board_.player.audioConnected();
    story_.say("player",
               inTime_ ? QStringLiteral("is connected to \"bluetooth\"")
                       : QStringLiteral("is late: not connected to \"bluetooth\" yet"));
    story_.say("phone", QStringLiteral("plays %1 s").arg(recording_.seconds(), 0, 'f', 2));
    phone_.play(packets_, format_);
    return true;
}

/// From the first packet to a phone that is gone.
bool Demo::stopStreaming()
{
    const auto patience = LastAudioMs + static_cast<int>(recording_.seconds() * 1500);
    if (!story_.insist(waitFor([this] { return !phone_.isPlaying(); }, patience),
                       QStringLiteral("the daemon did not read the stream to its end")))
        return false;
    const auto all = decodeSbc(packets_).size();
    waitFor([&] { return board_.player.heard().size() >= all; }, LastAudioMs);

    const Recording heard{format_.sampleRate, format_.channels(), board_.player.heard()};
    story_.say("player", QStringLiteral("has heard %1 s").arg(heard.seconds(), 0, 'f', 2));

    story_.say("phone", QStringLiteral("suspends the stream"));
    phone_.suspend();
    if (!awaitStatus(true, false) || !story_.insist(phone_.clear(), QStringLiteral("ClearConfiguration failed")))
        return false;
    story_.say("phone", QStringLiteral("has cleared the configuration and disconnects"));
    phone_.disconnect();
    return awaitStatus(false, false);
}

int Demo::hold()
{
    std::signal(SIGINT, [](int) { interrupted = 1; });
    std::signal(SIGTERM, [](int) { interrupted = 1; });
    QObject::connect(&phone_, &Phone::finished, &board_.player, [this] {
        if (phone_.socket() < 0)
            return;
        story_.say("phone", QStringLiteral("plays it again"));
        board_.player.forgetHeard();
        phone_.play(packets_, format_);
    });
    QObject::connect(&board_.bluez, &FakeBluez::disconnectRequested, &phone_,
                     [this] { story_.say("phone", QStringLiteral("is disconnected by the speaker")); });
    const QString busctl = QStringLiteral("busctl --address=") + board_.bus.address();
    const QString object = QStringLiteral(" org.kadobt /kadobt");
    const QString interface = object + QStringLiteral(" org.kadobt.commands ");
    std::printf("\nThe board stays up until Ctrl-C. To try the control interface from another terminal:\n\n");
    for (const char *property : {"AdapterPresent", "Connected", "Streaming", "Name"})
        std::printf("%s\n", qPrintable(busctl + " get-property" + interface + property));
    for (const char *method : {"IsAdapterPresent", "ResetAlias", "SelectBluetooth"})
        std::printf("%s\n", qPrintable(busctl + " call" + interface + method));
    std::printf("%s\n", qPrintable(busctl + " set-property" + interface + "Connected b false"));
    std::printf("%s\n", qPrintable(busctl + " introspect" + object));
    std::printf("%s\n\n", qPrintable(busctl + " tree org.bluez"));

    const auto hasEnded = [this] { return board_.daemon.process().state() == QProcess::NotRunning; };
    waitFor([&] { return interrupted != 0 || hasEnded(); }, std::numeric_limits<int>::max());
    if (hasEnded()) {
        std::fprintf(stderr, "kado-bt has ended by itself\n");
        return EXIT_FAILURE;
    }
    board_.daemon.stop();
    story_.say("board", QStringLiteral("kado-bt is stopped"));
    return EXIT_SUCCESS;
}

bool Demo::awaitStatus(bool connected, bool streaming)
{
    return story_.awaitStatus("USB", connected, connected ? PhoneName : QString(), streaming);
}

bool Demo::isAdapterSetUp() const
{
    const auto property = [this](const char *name) {
        return board_.bluez.property("/org/bluez/hci0", bluez::AdapterInterface, QLatin1String(name));
    };
    return property("Alias") == "Kitchen BT" && property("Powered").toBool() && property("Discoverable").toBool()
        && property("DiscoverableTimeout") == 0U && board_.bluez.defaultAgent() && !board_.bluez.endpoints().isEmpty();
}

int Demo::sumUp()
{
    const QByteArray &heard = board_.player.heard();
    const HeardCheck check = checkHeard(packets_, heard);
    if (!story_.failed())
        story_.insistOnNoMoreRequests();
    story_.insist(check.exact && (!inTime_ || check.firstPacket == 0),
                  QStringLiteral("what the player heard is not what the phone sent"));

    const QString wav = QDir(options_.outDirectory).absoluteFilePath(QStringLiteral("heard.wav"));
    const Recording heardRecording{format_.sampleRate, format_.channels(), heard};
    story_.insist(writeWav(wav, heardRecording), wav + QStringLiteral(" could not be written"));

    double sentSeconds = 0;
    for (const QByteArray &packet : packets_)
        sentSeconds += packetSeconds(packet, format_);
    Recording original = recording_; // what came before the player is not held against the codec
    original.pcm.remove(0, static_cast<int>(decodeSbc(packets_.mid(0, check.firstPacket)).size()));

    std::printf("\nCalls to BlueZ at start:\n");
    for (const BluezCall &call : std::as_const(callsAtStart_))
        std::printf("    %s\n", qPrintable(call.text()));
    story_.listRequests();
    std::printf("Audio:\n");
    std::printf("    sent       %.2f s in %d packets\n", sentSeconds, static_cast<int>(packets_.size()));
    std::printf("    heard      %.2f s, %s\n", heardRecording.seconds(), qPrintable(check.text));
    if (check.exact)
        std::printf("    SNR        %.1f dB against the recording\n", snrDb(original, heardRecording));
    std::printf("    to listen  %s\n", qPrintable(wav));
    return story_.end();
}

} // namespace

int runDemo(const DemoOptions &options)
{
    QString error;
    const Recording recording = readRecordings(options.files, error);
    if (recording.pcm.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return EXIT_FAILURE;
    }
    QDir().mkpath(options.outDirectory);
    return Demo(options, recording).run();
}

} // namespace sim

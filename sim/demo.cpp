// SPDX-License-Identifier: MIT
#include "sim/demo.h"

#include "bluez/names.h"
#include "sim/board.h"
#include "sim/demoreport.h"
#include "sim/heardcheck.h"
#include "sim/recording.h"
#include "sim/sbcstream.h"

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

// A phone's encoder needs about this time from the stream's start to its first packet. It does not wait for a player.
constexpr int EncoderStartMs = 300;
// Time for the last packets to reach the player.
constexpr int LastAudioMs = 2000;

volatile std::sig_atomic_t interrupted = 0;

/// The demo on a board with a phone. The first failed check ends it.
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
    DemoReport report_;
    Phone phone_;
    QList<BluezCall> callsAtStart_;
    bool inTime_ = false; ///< set when the player connected before the first packet
};

Demo::Demo(const DemoOptions &options, const Recording &recording)
    : options_(options), recording_(recording), board_(options.busSocketPath), report_(board_.daemon, board_.player),
      phone_(board_.bluez, PhonePath, PhoneName)
{
    constexpr int Mtu = 672; // the usual result of BlueZ's negotiation with a phone
    format_.sampleRate = recording.sampleRate;
    packets_ = encodeSbc(recording.pcm, format_, Mtu);

    board_.player.connectOnPlay(true);
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

/// Starts the daemon, connects the phone and starts its stream. After true, the phone is playing.
bool Demo::stream()
{
    report_.log("board", QStringLiteral("kado-bt starts"));
    if (!report_.expect(board_.startDaemon(), QStringLiteral("kado-bt did not set the adapter up")))
        return false;
    callsAtStart_ = board_.bluez.calls();
    if (!awaitStatus(false, false)
        || !report_.expect(isAdapterSetUp(), QStringLiteral("the adapter is not set up correctly")))
        return false;
    report_.log("board",
                QStringLiteral("the adapter is \"%1\", discoverable without end, with %2 endpoints and an agent")
                    .arg(board_.bluez.property("/org/bluez/hci0", bluez::AdapterInterface, "Alias").toString())
                    .arg(board_.bluez.endpoints().size()));

    report_.log("phone", PhoneName + QStringLiteral(" pairs and connects"));
    phone_.connect();
    if (!awaitStatus(true, false))
        return false;
    if (!report_.expect(phone_.authorize(), QStringLiteral("the phone was not authorised"))
        || !report_.expect(phone_.configure(format_), QStringLiteral("the configuration was refused")))
        return false;
    report_.log("phone",
                QStringLiteral("is authorised for audio and has configured SBC: %1 Hz, joint stereo, %2 blocks, %3 "
                               "subbands, loudness, bitpool %4")
                    .arg(format_.sampleRate)
                    .arg(format_.blocks)
                    .arg(format_.subbands)
                    .arg(format_.bitpool));

    if (!report_.expect(phone_.start(), QStringLiteral("the stream was not acquired")))
        return false;
    QElapsedTimer sinceActive;
    sinceActive.start();
    report_.log("phone", QStringLiteral("has started the stream"));
    if (!awaitStatus(true, true) || !report_.selectBluetooth(board_.control, format_.sampleRate, PhoneName))
        return false;
    waitFor([this] { return board_.player.audioConnected(); },
            std::max(0, EncoderStartMs - static_cast<int>(sinceActive.elapsed())));
    inTime_ = board_.player.audioConnected();
    report_.log("player",
                inTime_ ? QStringLiteral("is connected to \"bluetooth\"")
                        : QStringLiteral("is late: not connected to \"bluetooth\" yet"));
    report_.log("phone", QStringLiteral("plays %1 s").arg(recording_.seconds(), 0, 'f', 2));
    phone_.play(packets_, format_);
    return true;
}

/// Waits until the phone has played everything, then suspends the stream and disconnects the phone.
bool Demo::stopStreaming()
{
    const auto timeoutMs = LastAudioMs + static_cast<int>(recording_.seconds() * 1500);
    if (!report_.expect(waitFor([this] { return !phone_.isPlaying(); }, timeoutMs),
                        QStringLiteral("the daemon did not read the stream to its end")))
        return false;
    const auto all = decodeSbc(packets_).size();
    waitFor([&] { return board_.player.heard().size() >= all; }, LastAudioMs);

    const Recording heard{format_.sampleRate, format_.channels(), board_.player.heard()};
    report_.log("player", QStringLiteral("has heard %1 s").arg(heard.seconds(), 0, 'f', 2));

    report_.log("phone", QStringLiteral("suspends the stream"));
    phone_.suspend();
    if (!awaitStatus(true, false) || !report_.expect(phone_.clear(), QStringLiteral("ClearConfiguration failed")))
        return false;
    report_.log("phone", QStringLiteral("has cleared the configuration and disconnects"));
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
        report_.log("phone", QStringLiteral("plays it again"));
        board_.player.clearHeard();
        phone_.play(packets_, format_);
    });
    QObject::connect(&board_.bluez, &FakeBluez::disconnectRequested, &phone_,
                     [this] { report_.log("phone", QStringLiteral("is disconnected by the speaker")); });
    const QString busctl = QStringLiteral("busctl --address=") + board_.bus.address();
    const QString object = QStringLiteral(" org.kadobt /kadobt");
    const QString interface = object + QStringLiteral(" org.kadobt.commands ");
    std::printf("\nThe board stays up until Ctrl-C. To try the control interface from another terminal:\n\n");
    for (const char *property : {"AdapterPresent", "Connected", "Streaming", "Name"})
        std::printf("%s\n", qPrintable(busctl + " get-property" + interface + property));
    for (const char *method : {"IsAdapterPresent", "ResetAlias", "SelectBluetooth"})
        std::printf("%s\n", qPrintable(busctl + " call" + interface + method));
    std::printf("%s\n", qPrintable(busctl + " introspect" + object));
    std::printf("%s\n", qPrintable(busctl + " tree org.bluez"));
    std::printf("%s\n\n", qPrintable(busctl + " set-property" + interface + "Connected b false"));

    const auto hasEnded = [this] { return board_.daemon.process().state() == QProcess::NotRunning; };
    waitFor([&] { return interrupted != 0 || hasEnded(); }, std::numeric_limits<int>::max());
    if (hasEnded()) {
        std::fprintf(stderr, "kado-bt has ended by itself\n");
        return EXIT_FAILURE;
    }
    board_.daemon.stop();
    report_.log("board", QStringLiteral("kado-bt is stopped"));
    return EXIT_SUCCESS;
}

bool Demo::awaitStatus(bool connected, bool streaming)
{
    return report_.awaitStatus("USB", connected, connected ? PhoneName : QString(), streaming);
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
    if (!report_.failed())
        report_.expectNoMoreRequests();
    report_.expect(check.exact && (!inTime_ || check.firstPacket == 0),
                   QStringLiteral("the audio that the player heard differs from the audio that the phone sent"));

    const QString wav = QDir(options_.outDirectory).absoluteFilePath(QStringLiteral("heard.wav"));
    const Recording heardRecording{format_.sampleRate, format_.channels(), heard};
    report_.expect(writeWav(wav, heardRecording), wav + QStringLiteral(" could not be written"));

    double sentSeconds = 0;
    for (const QByteArray &packet : packets_)
        sentSeconds += packetSeconds(packet, format_);
    Recording original = recording_; // without the part before the player joined, which must not count as noise
    original.pcm.remove(0, static_cast<int>(decodeSbc(packets_.mid(0, check.firstPacket)).size()));

    std::printf("\nCalls to BlueZ at start:\n");
    for (const BluezCall &call : std::as_const(callsAtStart_))
        std::printf("    %s\n", qPrintable(call.text()));
    report_.listRequests();
    std::printf("Audio:\n");
    std::printf("    sent       %.2f s in %d packets\n", sentSeconds, static_cast<int>(packets_.size()));
    std::printf("    heard      %.2f s, %s\n", heardRecording.seconds(), qPrintable(check.text));
    if (check.exact)
        std::printf("    SNR        %.1f dB against the recording\n", snrDb(original, heardRecording));
    std::printf("    to listen  %s\n", qPrintable(wav));
    return report_.finish();
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

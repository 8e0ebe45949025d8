#include "soak/soakreport.h"

#include "sim/daemon.h"

#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int StepsKept = 12;
constexpr int LinesKept = 24;
constexpr double SecondsAnHour = 3600;

/// The lines that a soak may cause at the default level, without their blank at the end.
bool isExpected(const QString &line)
{
    static const QRegularExpression expected(QRegularExpression::anchoredPattern(QStringLiteral(
        "start kado-bt [0-9.]+"
        "|Set default adapter:  \"/org/bluez/hci[01]\""
        // BlueZ went without an answer, or with what the call was for
        "|(Call to BlueZ failed: \"[A-Za-z ]+\" \"/[^\"]*\"|org.bluez.MediaTransport1.Acquire:) "
        "\"org.(freedesktop.DBus.Error.(NoReply|ServiceUnknown|UnknownObject)"
        "|bluez.Error.NotAvailable)\" \".*\""
        "|Device (Connect|Disconnect): \"[^\"]+\""
        "|Active Device: \".*\" \".*\""
        "|Agent1::AuthorizeService \"[^\"]+\" \"0000110d-[^\"]+\""
        "|Rejected"
        "|SelectConfiguration: \"[0-9a-f]+\" Codec: \"pcm\"|Selected: \"[0-9a-f]{8}\""
        "|SetConfiguration: \"[0-9a-f]+\" Codec: \"(pcm|aac)\""
        "|Bitrate: [0-9]+( VBR)?"
        "|Sample Rate: [0-9]+ Bit Depth: 16 Channels: [12]"
        "|Transport State = \"(pending|active|idle)\""
        "|SelectBluetooth\\(\\): (transport not active|no transport|\"http://127.0.0.1:11000/Play\\?.*\")"
        "|New audio out socket connection accepted"
        "|Audio client does not read, dropping packets"
        "|Audio client was too slow, packets dropped: [0-9]+")));
    return expected.match(line).hasMatch();
}

void printCounts(const char *title, const QMap<QString, int> &counts)
{
    std::printf("  %s\n", title);
    for (auto count = counts.begin(); count != counts.end(); ++count)
        std::printf("    %-42s %10d\n", qPrintable(count.key()), count.value());
}

void printGrowth(const char *what, int atStart, int atEnd)
{
    std::printf("    %-42s %10d -> %d\n", what, atStart, atEnd);
}

} // namespace

SoakFootprint SoakFootprint::of(const Daemon &daemon)
{
    return {daemon.openDescriptors(), daemon.residentKib(), daemon.privateDirtyKib()};
}

SoakReport::SoakReport(quint32 seed) : seed_(seed)
{
    clock_.start();
}

int SoakReport::step(const QString &name)
{
    ++steps_;
    latestSteps_.append(QStringLiteral("%1 %2").arg(steps_).arg(name));
    if (latestSteps_.size() > StepsKept)
        latestSteps_.removeFirst();
    return steps_;
}

bool SoakReport::insist(bool asItShouldBe, const QString &otherwise)
{
    if (!asItShouldBe && fault_.isEmpty())
        fault_ = otherwise;
    return asItShouldBe;
}

void SoakReport::heard(qint64 bytes, double seconds)
{
    bytesHeard_ += bytes;
    secondsHeard_ += seconds;
}

void SoakReport::logLine(const QString &line)
{
    latestLines_.append(line);
    if (latestLines_.size() > LinesKept)
        latestLines_.removeFirst();
    const QString text = line.endsWith(QLatin1Char(' ')) ? line.chopped(1) : line;
    const bool expected = isExpected(text);
    if (!expected)
        ++unexpectedLines_;
    insist(expected, QStringLiteral("the log has a line that is not expected: ") + line);
    if (text.startsWith(QLatin1String("Audio client was too slow")))
        droppedPackets_ = text.section(QLatin1Char(' '), -1).toInt();
}

QString SoakReport::progress() const
{
    return QStringLiteral("%1 min: %2 steps, %3 h of audio sent, %4 h heard, %5 notifications")
        .arg(static_cast<double>(clock_.elapsed()) / 60'000, 5, 'f', 1)
        .arg(steps_)
        .arg(secondsSent_ / SecondsAnHour, 0, 'f', 2)
        .arg(secondsHeard_ / SecondsAnHour, 0, 'f', 2)
        .arg(requests_);
}

int SoakReport::finish(const SoakFootprint &atStart, const SoakFootprint &atEnd) const
{
    std::printf("\nSoak, seed %u\n", seed_);
    std::printf("    %-42s %10.1f min\n", "wall time", static_cast<double>(clock_.elapsed()) / 60'000);
    std::printf("    %-42s %10d\n", "steps", steps_);
    std::printf("    %-42s %10.2f h\n", "audio sent", secondsSent_ / SecondsAnHour);
    std::printf("    %-42s %10.2f h, %.1f MiB\n", "audio heard and compared", secondsHeard_ / SecondsAnHour,
                static_cast<double>(bytesHeard_) / (1024.0 * 1024.0));
    std::printf("    %-42s %10.1f ms after it was sent\n", "latest packet heard", latestHeardMs_);
    printCounts("cycles", cycles_);
    printCounts("faults injected", faults_);
    printCounts("BlueZ late or silent", unanswered_);
    std::printf("  found wrong\n");
    std::printf("    %-42s %10lld\n", "bytes of audio lost or altered", wrongBytes_);
    std::printf("    %-42s %10d of %d\n", "notifications wrong or missing", wrongRequests_, requests_);
    std::printf("    %-42s %10d\n", "log lines not expected", unexpectedLines_);
    std::printf("  the daemon, after warming up and at the end\n");
    printGrowth("open descriptors", atStart.descriptors, atEnd.descriptors);
#ifdef KADO_SANITIZED
    std::printf("    %-42s %10s\n", "memory", "not measured, a sanitizer keeps what is freed");
#else
    printGrowth("resident memory, KiB", atStart.residentKib, atEnd.residentKib);
    printGrowth("private dirty memory, KiB", atStart.privateDirtyKib, atEnd.privateDirtyKib);
#endif
    if (!failed()) {
        std::printf("Everything was as it should be.\n");
        return EXIT_SUCCESS;
    }
    printFault();
    return EXIT_FAILURE;
}

void SoakReport::printFault() const
{
    std::printf("\nThe daemon's last lines:\n");
    for (const QString &line : latestLines_)
        std::printf("    %s\n", qPrintable(line));
    std::printf("The last steps:\n");
    for (const QString &step : latestSteps_)
        std::printf("    %s\n", qPrintable(step));
    std::printf("FAILED in step %d: %s.\nTo see it again: scripts/soak MINUTES %u\n", steps_, qPrintable(fault_),
                seed_);
}

} // namespace sim

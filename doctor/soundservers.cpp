// SPDX-License-Identifier: MIT
#include "doctor/soundservers.h"

#include "doctor/processes.h"

#include <QFile>

namespace doctor {

namespace {

struct SoundServer {
    const char *process;
    const char *plugin; ///< in the name of a library that it loads to talk to BlueZ; null: it does nothing else
    const char *advice;
};

const char *const WirePlumberAdvice = "Turn WirePlumber's monitor for bluez5 off";
const SoundServer SoundServers[] = {
    {"bluealsa", nullptr, "Disable BlueALSA: systemctl disable --now bluealsa"},
    {"bluealsad", nullptr, "Disable BlueALSA: systemctl disable --now bluealsa"},
    {"wireplumber", "libspa-bluez5", WirePlumberAdvice},
    {"pipewire", "libspa-bluez5", WirePlumberAdvice},
    {"pipewire-media-", "libspa-bluez5", "Turn the bluez5 module of pipewire-media-session off"},
    {"pulseaudio", "bluez5", "Leave PulseAudio's module-bluetooth-discover out"},
};

/// The finding about a running sound server; none when it leaves BlueZ alone.
Findings judge(const Process &process, const SoundServer &server)
{
    const QString about = "other sound servers";
    const QString seen = QString("%1 runs (%2)").arg(process.name, process.folder);
    if (!server.plugin)
        return {wrong(about, seen, server.advice)};
    QFile maps(process.folder + "/maps");
    if (!maps.open(QIODevice::ReadOnly))
        return {note(about, seen, "Whether it talks to BlueZ only root can see")};
    if (maps.readAll().contains(server.plugin))
        return {wrong(about, seen + " and talks to BlueZ", server.advice)};
    return {};
}

} // namespace

Findings lookAtSoundServers()
{
    Findings findings;
    for (const Process &process : processes()) {
        for (const SoundServer &server : SoundServers) {
            if (process.name == server.process)
                findings << judge(process, server);
        }
    }
    if (!findings.isEmpty())
        return findings;
    if (othersAreHidden())
        return {note("other sound servers", "the processes of others are hidden from this user", "Ask as root")};
    return {ok("other sound servers", "none talks to BlueZ")};
}

} // namespace doctor

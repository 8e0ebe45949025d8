// SPDX-License-Identifier: MIT
#include "doctor/soundservers.h"

#include "doctor/processes.h"

#include <QFile>

namespace doctor {

namespace {

struct SoundServer {
    const char *process;
    const char
        *plugin; ///< part of the name of the library with which it talks to BlueZ; null: it always talks to BlueZ
    const char *advice;
};

const char *const WirePlumberAdvice = "Turn off WirePlumber's monitor for bluez5";
const SoundServer SoundServers[] = {
    {"bluealsa", nullptr, "Disable BlueALSA: systemctl disable --now bluealsa"},
    {"bluealsad", nullptr, "Disable BlueALSA: systemctl disable --now bluealsa"},
    {"wireplumber", "libspa-bluez5", WirePlumberAdvice},
    {"pipewire", "libspa-bluez5", WirePlumberAdvice},
    {"pipewire-media-", "libspa-bluez5", "Turn off the bluez5 module of pipewire-media-session"},
    {"pulseaudio", "bluez5", "Do not load PulseAudio's module-bluetooth-discover"},
};

/// Returns the finding about a running sound server; empty when the server does not talk to BlueZ.
Findings judge(const Process &process, const SoundServer &server)
{
    const QString about = "other sound servers";
    const QString seen = QString("%1 runs (%2)").arg(process.name, process.folder);
    if (!server.plugin)
        return {wrong(about, seen, server.advice)};
    QFile maps(process.folder + "/maps");
    if (!maps.open(QIODevice::ReadOnly))
        return {note(about, seen, "Run kado-bt-doctor as root to see whether it talks to BlueZ")};
    if (maps.readAll().contains(server.plugin))
        return {wrong(about, seen + " and talks to BlueZ", server.advice)};
    return {};
}

} // namespace

Findings checkSoundServers()
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
        return {note("other sound servers", "this user cannot see the processes of other users",
                     "Run kado-bt-doctor as root")};
    return {ok("other sound servers", "none talks to BlueZ")};
}

} // namespace doctor

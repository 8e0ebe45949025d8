// SPDX-License-Identifier: MIT
#include "doctor/phone.h"

#include "bluez/names.h"

namespace doctor {

namespace {

/// The interfaces of this name in BlueZ's tree.
QList<QVariantMap> allOf(const std::optional<DBusManagerStruct> &objects, const QString &interface)
{
    QList<QVariantMap> found;
    if (!objects)
        return found;
    for (const QVariantMapMap &object : *objects) {
        if (object.contains(interface))
            found << object.value(interface);
    }
    return found;
}

Finding phone(const QVariantMap &state, const QList<QVariantMap> &devices)
{
    const QString about = "phone";
    if (state.value("Connected").toBool())
        return ok(about, '"' + state.value("Name").toString() + "\" is connected");
    for (const QVariantMap &device : devices) {
        if (device.value(bluez::ConnectedProperty).toBool())
            return wrong(about,
                         '"' + device.value(bluez::AliasProperty).toString() + "\" is connected, but not kado-bt's",
                         "It came while another one was there: disconnect it and connect it again");
    }
    return note(about, "none is connected");
}

QString codecText(const QVariantMap &transport)
{
    constexpr uchar Sbc = 0;
    constexpr uchar Aac = 2;
    const QVariant codec = transport.value("Codec");
    if (codec.userType() != QMetaType::UChar)
        return "no codec";
    if (codec.value<uchar>() == Sbc)
        return "SBC";
    if (codec.value<uchar>() == Aac)
        return "AAC";
    return QString("codec %1, not kado-bt's").arg(codec.value<uchar>());
}

Finding stream(const QVariantMap &state, const std::optional<DBusManagerStruct> &objects)
{
    const QString about = "stream";
    const bool streaming = state.value("Streaming").toBool();
    if (!objects)
        return streaming ? ok(about, "the phone plays") : note(about, "the phone does not play");
    const QList<QVariantMap> transports = allOf(objects, bluez::MediaTransportInterface);
    if (transports.isEmpty())
        return note(about, "none is configured", "If the phone wants to play, see the log for SetConfiguration");
    const QString bluezState = transports.constFirst().value(bluez::StateProperty).toString();
    const QString seen = codecText(transports.constFirst()) + ", " + bluezState;
    if (streaming)
        return ok(about, seen);
    if (bluezState == QLatin1String("active"))
        return wrong(
            about, seen + ", but not kado-bt's",
            "Another process has it, or kado-bt was started while it played: let the phone pause and play again");
    return note(about, seen, "It does not play");
}

} // namespace

Findings lookAtPhone(const QVariantMap &state, const std::optional<DBusManagerStruct> &objects, int audioClients)
{
    Findings findings{phone(state, allOf(objects, bluez::DeviceInterface))};
    if (!state.value("Connected").toBool())
        return findings;
    findings << stream(state, objects);
    if (!state.value("Streaming").toBool())
        return findings;
    if (audioClients == 0)
        return findings << wrong("listener", "the phone plays, and nobody is connected to the audio socket",
                                 "Call SelectBluetooth(); the player has to connect when it gets /Play");
    return findings << ok("listener", "the player is connected to the audio socket");
}

} // namespace doctor

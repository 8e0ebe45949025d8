// SPDX-License-Identifier: MIT
#include "doctor/phone.h"

#include "bluez/names.h"

namespace doctor {

namespace {

/// Returns the properties of every object with this interface.
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
            return wrong(
                about, '"' + device.value(bluez::AliasProperty).toString() + "\" is connected, but kado-bt ignores it",
                "It connected while another phone was connected. Disconnect it and connect it again");
    }
    return note(about, "no phone is connected");
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
    return QString("codec %1, unknown to kado-bt").arg(codec.value<uchar>());
}

Finding stream(const QVariantMap &state, const std::optional<DBusManagerStruct> &objects)
{
    const QString about = "stream";
    const bool streaming = state.value("Streaming").toBool();
    if (!objects)
        return streaming ? ok(about, "the phone plays") : note(about, "the phone does not play");
    const QList<QVariantMap> transports = allOf(objects, bluez::MediaTransportInterface);
    if (transports.isEmpty())
        return note(about, "no stream is configured",
                    "If the phone is trying to play, look for SetConfiguration in kado-bt's log");
    const QString bluezState = transports.constFirst().value(bluez::StateProperty).toString();
    const QString seen = codecText(transports.constFirst()) + ", " + bluezState;
    if (streaming)
        return ok(about, seen);
    if (bluezState == QLatin1String("active"))
        return wrong(about, seen + ", but kado-bt does not receive it",
                     "Another process has acquired the stream, or kado-bt was started while the phone was playing. "
                     "Pause the phone and play again");
    return note(about, seen, "The phone does not play");
}

} // namespace

Findings checkPhone(const QVariantMap &state, const std::optional<DBusManagerStruct> &objects, int audioClients)
{
    Findings findings{phone(state, allOf(objects, bluez::DeviceInterface))};
    if (!state.value("Connected").toBool())
        return findings;
    findings << stream(state, objects);
    if (!state.value("Streaming").toBool())
        return findings;
    if (audioClients == 0)
        return findings << wrong("listener", "the phone plays, but no client is connected to the audio socket",
                                 "Call SelectBluetooth(). The player must connect when it receives /Play");
    return findings << ok("listener", "the player is connected to the audio socket");
}

} // namespace doctor

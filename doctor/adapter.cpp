// SPDX-License-Identifier: MIT
#include "doctor/adapter.h"

#include "bluez/names.h"
#include "board/speakername.h"
#include "doctor/boardfiles.h"
#include "doctor/deviceclass.h"

#include <QDBusArgument>

#include <algorithm>

namespace doctor {

namespace {

/// Returns why BlueZ did not list its objects, or nothing when it did.
std::optional<Finding> bluezFault(const Peer &bluez, uid_t caller)
{
    const QString about = "BlueZ";
    if (!bluez.hasOwner)
        return wrong(about, "no process owns org.bluez", "Start bluetoothd, see systemctl status bluetooth");
    if (isAccessDenied(bluez.reply) && caller != 0)
        return note(about, "this user may not call it", "Run kado-bt-doctor as root");
    if (isTimeout(bluez.reply))
        return wrong(about, QString("no answer within %1 s").arg(CallTimeout.count() / 1000), "Restart bluetoothd");
    if (!objectsOf(bluez))
        return wrong(about, errorText(bluez.reply),
                     "Check that bluetoothd owns org.bluez and that the bus policy permits the call");
    return {};
}

/// Checks one property of the adapter: it must have the type T, and a value that `isGood` accepts.
template <typename T>
Finding property(const QVariantMap &adapter, const char *name, const QString &about, bool (*isGood)(const T &),
                 QString (*text)(const T &), const QString &advice)
{
    const QVariant value = adapter.value(name);
    if (value.userType() != qMetaTypeId<T>())
        return wrong(about, QString("BlueZ reports no valid %1").arg(name), "Check that bluetoothd owns org.bluez");
    const T typed = value.value<T>();
    return isGood(typed) ? ok(about, text(typed)) : wrong(about, text(typed), advice);
}

Finding alias(const QVariantMap &adapter)
{
    const QString about = "name on the air";
    const QString seen = '"' + adapter.value(bluez::AliasProperty).toString() + '"';
    const QString name = speakerName();
    if (name.isEmpty())
        return note(about, seen + ", BlueZ's own name, because the speaker has none");
    const QString expected = name + SpeakerNameSuffix;
    if (adapter.value(bluez::AliasProperty) == expected)
        return ok(about, seen);
    return wrong(about, seen + ", not \"" + expected + '"', "Call ResetAlias() after each change of the name file");
}

} // namespace

Findings checkAdapter(const Peer &bluez, uid_t caller)
{
    if (const auto finding = bluezFault(bluez, caller))
        return {*finding};
    Findings findings{ok("BlueZ", QString("answers, process %1").arg(bluez.process))};

    const DBusManagerStruct objects = *objectsOf(bluez);
    const auto object = std::find_if(objects.begin(), objects.end(), [](const QVariantMapMap &interfaces) {
        return interfaces.contains(bluez::AdapterInterface);
    });
    if (object == objects.end())
        return findings << wrong("adapter", "BlueZ has none",
                                 "Check in dmesg that the radio's driver and firmware are loaded");
    const QVariantMap adapter = object->value(bluez::AdapterInterface);
    findings << ok("adapter", object.key().path() + ' ' + adapter.value("Address").toString());

    const auto isTrue = [](const bool &value) { return value; };
    const QString restart = "kado-bt sets this property when it finds the adapter. "
                            "Look for \"Call to BlueZ failed\" in its log, then restart it";
    findings << property<bool>(
        adapter, "Powered", "power", isTrue, [](const bool &on) { return QString(on ? "on" : "off"); },
        "Check rfkill below. " + restart);
    findings << property<bool>(
        adapter, "Discoverable", "discoverable", isTrue, [](const bool &on) { return QString(on ? "yes" : "no"); },
        "New phones cannot find the speaker. " + restart);
    findings << property<uint>(
        adapter, "DiscoverableTimeout", "discoverable for", [](const uint &seconds) { return seconds == 0; },
        [](const uint &seconds) { return seconds == 0 ? QString("unlimited time") : QString("%1 s").arg(seconds); },
        "After that time new phones cannot find the speaker. " + restart);
    findings << property<uint>(adapter, "Class", "device class", isAudioClass, deviceClassText,
                               "Phones may not list the speaker as an audio device. Set Class in main.conf");
    findings << property<QStringList>(
        adapter, "UUIDs", "audio sink",
        [](const QStringList &uuids) { return uuids.contains(bluez::A2dpSinkUuid, Qt::CaseInsensitive); },
        [](const QStringList &uuids) {
            return QString(uuids.contains(bluez::A2dpSinkUuid, Qt::CaseInsensitive) ? "offered" : "not offered");
        },
        "No endpoint is registered. Check that kado-bt is running and that bluetoothd loads its plugin a2dp");
    return findings << alias(adapter);
}

std::optional<DBusManagerStruct> objectsOf(const Peer &bluez)
{
    bluez::registerObjectTreeTypes();
    if (bluez.reply.type() != QDBusMessage::ReplyMessage || bluez.reply.signature() != QLatin1String("a{oa{sa{sv}}}"))
        return {};
    return qdbus_cast<DBusManagerStruct>(bluez.reply.arguments().value(0));
}

} // namespace doctor

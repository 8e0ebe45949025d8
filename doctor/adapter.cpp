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

/// The fault of BlueZ itself; none when it told its objects.
std::optional<Finding> silence(const Peer &bluez, uid_t caller)
{
    const QString about = "BlueZ";
    if (!bluez.isThere)
        return wrong(about, "nobody owns org.bluez", "Start bluetoothd: systemctl status bluetooth");
    if (isRefusal(bluez.answer) && caller != 0)
        return note(about, "this user may not call it", "Ask as root");
    if (isSilence(bluez.answer))
        return wrong(about, QString("no answer for %1 s").arg(AnswerLimit.count() / 1000), "Restart bluetoothd");
    if (!objectsOf(bluez))
        return wrong(about, complaint(bluez.answer),
                     "Is the owner of org.bluez BlueZ, and does the bus policy permit it?");
    return {};
}

/// One property of the adapter: of type T, and as `isGood` says.
template <typename T>
Finding property(const QVariantMap &adapter, const char *name, const QString &about, bool (*isGood)(const T &),
                 QString (*text)(const T &), const QString &advice)
{
    const QVariant value = adapter.value(name);
    if (value.userType() != qMetaTypeId<T>())
        return wrong(about, QString("BlueZ tells no %1").arg(name), "Is the owner of org.bluez BlueZ?");
    const T typed = value.value<T>();
    return isGood(typed) ? ok(about, text(typed)) : wrong(about, text(typed), advice);
}

Finding alias(const QVariantMap &adapter)
{
    const QString about = "name on the air";
    const QString seen = '"' + adapter.value(bluez::AliasProperty).toString() + '"';
    const QString name = speakerName();
    if (name.isEmpty())
        return note(about, seen + ", BlueZ's own, because the speaker has no name");
    const QString expected = name + SpeakerNameSuffix;
    if (adapter.value(bluez::AliasProperty) == expected)
        return ok(about, seen);
    return wrong(about, seen + ", not \"" + expected + '"', "Call ResetAlias() after the name file was changed");
}

} // namespace

Findings lookAtAdapter(const Peer &bluez, uid_t caller)
{
    if (const auto finding = silence(bluez, caller))
        return {*finding};
    Findings findings{ok("BlueZ", QString("answers, process %1").arg(bluez.process))};

    const DBusManagerStruct objects = *objectsOf(bluez);
    const auto object = std::find_if(objects.begin(), objects.end(), [](const QVariantMapMap &interfaces) {
        return interfaces.contains(bluez::AdapterInterface);
    });
    if (object == objects.end())
        return findings << wrong("adapter", "BlueZ has none",
                                 "Is the radio's driver loaded and its firmware there? See dmesg");
    const QVariantMap adapter = object->value(bluez::AdapterInterface);
    findings << ok("adapter", object.key().path() + ' ' + adapter.value("Address").toString());

    const auto isTrue = [](const bool &value) { return value; };
    const QString again =
        "kado-bt sets it when it takes the adapter: see \"Call to BlueZ failed\" in its log, restart it";
    findings << property<bool>(
        adapter, "Powered", "power", isTrue, [](const bool &on) { return QString(on ? "on" : "off"); },
        "Is it blocked, below? " + again);
    findings << property<bool>(
        adapter, "Discoverable", "discoverable", isTrue, [](const bool &on) { return QString(on ? "yes" : "no"); },
        "No new phone finds the speaker. " + again);
    findings << property<uint>(
        adapter, "DiscoverableTimeout", "discoverable for", [](const uint &seconds) { return seconds == 0; },
        [](const uint &seconds) { return seconds == 0 ? QString("ever") : QString("%1 s").arg(seconds); },
        "New phones find the speaker for that long only. " + again);
    findings << property<uint>(adapter, "Class", "device class", isAudioClass, deviceClassText,
                               "Phones may not list it as audio: set Class in main.conf");
    findings << property<QStringList>(
        adapter, "UUIDs", "audio sink",
        [](const QStringList &uuids) { return uuids.contains(bluez::A2dpSinkUuid, Qt::CaseInsensitive); },
        [](const QStringList &uuids) {
            return QString(uuids.contains(bluez::A2dpSinkUuid, Qt::CaseInsensitive) ? "offered" : "not offered");
        },
        "No endpoint is registered: is kado-bt running, and bluetoothd with its plugin a2dp?");
    return findings << alias(adapter);
}

std::optional<DBusManagerStruct> objectsOf(const Peer &bluez)
{
    bluez::registerObjectTreeTypes();
    if (bluez.answer.type() != QDBusMessage::ReplyMessage || bluez.answer.signature() != QLatin1String("a{oa{sa{sv}}}"))
        return {};
    return qdbus_cast<DBusManagerStruct>(bluez.answer.arguments().value(0));
}

} // namespace doctor

// SPDX-License-Identifier: MIT
#include "bluez/connecteddevice.h"

#include "bluez/names.h"

#include <utility>

ConnectedDevice::ConnectedDevice(std::function<void()> named) : named_(std::move(named)) {}

void ConnectedDevice::connected(const QString &path)
{
    path_ = path;
    askForName();
}

void ConnectedDevice::askForName()
{
    // BlueZ may still owe the answer for a phone that has left; calls do not pile up.
    askAgain_ = alias_.isUnderWay();
    if (askAgain_)
        return;
    alias_.start(bluez::GetProperty(bluez::DeviceInterface, path_, bluez::AliasProperty),
                 [this](const QDBusMessage &reply) {
                     if (path_.isEmpty())
                         return;
                     if (askAgain_) {
                         askForName();
                         return;
                     }
                     name_ = bluez::propertyValue(reply).toString();
                     isNamed_ = true;
                     named_();
                 });
}

void ConnectedDevice::disconnected()
{
    path_.clear();
    name_.clear();
    isNamed_ = false;
    disconnecting_.forget();
}

void ConnectedDevice::Disconnect()
{
    if (path_.isEmpty() || disconnecting_.isUnderWay())
        return;
    disconnecting_.start(
        {path_, bluez::DeviceInterface, QStringLiteral("Disconnect"), {}, bluez::Need::Optional, bluez::PhoneAnswerMs},
        {});
}

// SPDX-License-Identifier: MIT
#include "bluez/connecteddevice.h"

#include "bluez/names.h"

#include <utility>

ConnectedDevice::ConnectedDevice(std::function<void()> onNamed) : onNamed_(std::move(onNamed)) {}

void ConnectedDevice::connected(const QString &path)
{
    path_ = path;
    readAlias();
}

void ConnectedDevice::readAlias()
{
    // The call for a phone that has left may still be pending. Wait for its reply, so that calls do not accumulate.
    aliasStale_ = aliasRead_.isPending();
    if (aliasStale_)
        return;
    aliasRead_.start(bluez::GetProperty(bluez::DeviceInterface, path_, bluez::AliasProperty),
                     [this](const QDBusMessage &reply) {
                         if (path_.isEmpty())
                             return;
                         if (aliasStale_) {
                             readAlias();
                             return;
                         }
                         name_ = bluez::propertyValue(reply).toString();
                         isNamed_ = true;
                         onNamed_();
                     });
}

void ConnectedDevice::disconnected()
{
    path_.clear();
    name_.clear();
    isNamed_ = false;
    disconnectCall_.cancel();
}

void ConnectedDevice::Disconnect()
{
    if (path_.isEmpty() || disconnectCall_.isPending())
        return;
    disconnectCall_.start({path_,
                           bluez::DeviceInterface,
                           QStringLiteral("Disconnect"),
                           {},
                           bluez::Need::Optional,
                           bluez::PhoneReplyTimeoutMs},
                          {});
}

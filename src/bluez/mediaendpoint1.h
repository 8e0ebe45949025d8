// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QVariantMap>

#include <memory>

class AdapterManager;
class Codec;
class Transport;

/// The interface through which BlueZ negotiates a stream (BlueZ doc/media-api.txt, MediaEndpoint1). Its methods reply
/// at once and never call BlueZ, because BlueZ goes on talking to the phone and a late reply can lose the phone.
class MediaEndpoint1 : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.MediaEndpoint1")
public:
    /// Attaches the interface to `endpoint`, its parent and owner. `codec` and `manager` must outlive it.
    MediaEndpoint1(QObject *endpoint, Codec &codec, AdapterManager &manager);
    /// Ends a configured stream.
    ~MediaEndpoint1() override;

public Q_SLOTS:
    /// Configures the codec, creates the transport of the new stream and makes it the manager's current transport. If a
    /// stream is already configured, keeps its transport, configures the codec and logs a warning.
    void SetConfiguration(const QDBusObjectPath &objectPath, const QVariantMap &properties);
    /// Returns the configuration that the codec chooses from a phone's capabilities.
    QByteArray SelectConfiguration(const QByteArray &capabilities);
    /// Ends the configured stream, if any. `path` is only logged.
    void ClearConfiguration(const QDBusObjectPath &path);
    void Release();

private:
    void teardown();

    Codec &codec_;
    AdapterManager &manager_;
    std::unique_ptr<Transport> transport_;
};

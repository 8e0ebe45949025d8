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

/// The interface through which BlueZ negotiates a stream (BlueZ doc/media-api.txt, MediaEndpoint1). Its methods answer
/// at once and never ask BlueZ anything: BlueZ goes on talking to the phone meanwhile, and a late answer loses the
/// phone.
class MediaEndpoint1 : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.MediaEndpoint1")
public:
    /// Attached to `endpoint`, its parent and owner. Codec and manager outlive it.
    MediaEndpoint1(QObject *endpoint, Codec &codec, AdapterManager &manager);
    /// Ends a configured stream.
    ~MediaEndpoint1() override;

public Q_SLOTS:
    /// Takes the configuration and makes the transport of the new stream the current one. While a stream is configured,
    /// another is refused by a warning.
    void SetConfiguration(const QDBusObjectPath &objectPath, const QVariantMap &properties);
    /// Answers with the codec's choice from a phone's capabilities.
    QByteArray SelectConfiguration(const QByteArray &capabilities);
    /// Ends the configured stream, if any, whatever the path.
    void ClearConfiguration(const QDBusObjectPath &path);
    void Release();

private:
    void teardown();

    Codec &codec_;
    AdapterManager &manager_;
    std::unique_ptr<Transport> transport_;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusAbstractAdaptor>
#include <QString>

class AbstractManager;

/// The control interface "org.kadobt.commands", through which other processes of the speaker query and control the
/// manager. Each call reads the current state from the manager. The interface has no signals.
class DBusCommandListener : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kadobt.commands")
    Q_PROPERTY(bool AdapterPresent READ adapterPresent)
    Q_PROPERTY(bool Connected READ connected WRITE setConnected)
    Q_PROPERTY(bool Streaming READ streaming)
    Q_PROPERTY(QString Name READ name)
public:
    /// Attaches the interface to `manager`, its parent and owner. From now on, losing the system bus is a fatal
    /// message, because only a restarted daemon can serve its clients when the bus returns.
    explicit DBusCommandListener(AbstractManager *manager);

    /// Requests the service name "org.kadobt" on the system bus and exports the adaptors of `manager` at "/kadobt". A
    /// refused name is a fatal message.
    static void claimService(AbstractManager *manager);

    bool adapterPresent() const;
    bool connected() const;
    /// Disconnects the phone if `connected` is false, and does nothing if it is true.
    void setConnected(bool connected);
    bool streaming() const;
    QString name() const;

public Q_SLOTS:
    void ResetAlias();
    bool IsAdapterPresent();
    void SelectBluetooth();

private Q_SLOTS:
    void busLost(); // private, so that QtDBus does not export it

private:
    AbstractManager &manager_;
};

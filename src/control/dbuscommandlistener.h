// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusAbstractAdaptor>
#include <QString>

class AbstractManager;

/// The control interface "org.kadobt.commands": the speaker's other processes ask and steer the manager through it.
/// Every answer is read from the manager at the moment of the call; there are no signals.
class DBusCommandListener : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kadobt.commands")
    Q_PROPERTY(bool AdapterPresent READ adapterPresent)
    Q_PROPERTY(bool Connected READ connected WRITE setConnected)
    Q_PROPERTY(bool Streaming READ streaming)
    Q_PROPERTY(QString Name READ name)
public:
    /// Attaches the interface to `manager`, its parent and owner. From here on the loss of the system bus is a fatal
    /// message: a daemon that nobody can reach, started again, can be reached when the bus is back.
    explicit DBusCommandListener(AbstractManager *manager);

    /// Takes the service name "org.kadobt" on the system bus, a fatal message if that is refused, and exports `manager`
    /// with its adaptors at "/kadobt".
    static void claimService(AbstractManager *manager);

    bool adapterPresent() const;
    bool connected() const;
    /// False disconnects the phone; true changes nothing.
    void setConnected(bool connected);
    bool streaming() const;
    QString name() const;

public Q_SLOTS:
    void ResetAlias();
    bool IsAdapterPresent();
    void SelectBluetooth();

private Q_SLOTS:
    void busLost(); // private: not a method of the interface

private:
    AbstractManager &manager_;
};

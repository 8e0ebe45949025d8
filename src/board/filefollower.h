// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QFileSystemWatcher>
#include <QMap>
#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <memory>
#include <sys/types.h>
#include <tuple>

/// A watcher of the file at a path. The file may be missing, replaced or removed at any time. The same holds for the
/// directories, symbolic links and mounts on the path.
class FileFollower : public QObject {
    Q_OBJECT
public:
    explicit FileFollower(const QString &path, QObject *parent = nullptr);

Q_SIGNALS:
    /// The file was written or touched, or the path now leads to another file or to no file. Emitted 100 ms after the
    /// first change; further changes within that time are coalesced.
    void changed();

private:
    /// Device and inode number of a file or directory, and whether it is readable.
    using Identity = std::tuple<dev_t, ino_t, bool>;
    using Components = QMap<QString, Identity>; ///< by path

    static Components componentsOf(const QString &path);
    void scheduleCheck();
    void check();

    const QString path_;
    Components components_;
    QFileSystemWatcher watcher_;
    qsizetype watchedCount_ = 0; ///< components that watcher_ accepted
    FileDescriptor mountInfo_;
    std::unique_ptr<QSocketNotifier> mountNotifier_;
    bool changePending_ = false; ///< the next check() emits changed()
    QTimer checkTimer_;
};

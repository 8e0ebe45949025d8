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

/// Follows the file that a path leads to, for as long as this object lives: it may be replaced, removed, or not there
/// yet, and so may the folders and symbolic links on the way to it, and what is mounted there.
class FileFollower : public QObject {
    Q_OBJECT
public:
    explicit FileFollower(const QString &path, QObject *parent = nullptr);

Q_SIGNALS:
    /// The file was written or touched, or the path leads to another one, or to none. Comes a tenth of a second after
    /// the first of several such changes, once for all of them.
    void changed();

private:
    /// Device and number of a file or folder, and whether it may be read.
    using Identity = std::tuple<dev_t, ino_t, bool>;
    using Way = QMap<QString, Identity>;

    static Way wayTo(const QString &path);
    void lookSoon();
    void look();

    const QString path_;
    Way way_;
    QFileSystemWatcher watcher_;
    qsizetype watched_ = 0; ///< how much of the way could be watched
    FileDescriptor mounts_;
    std::unique_ptr<QSocketNotifier> mounted_;
    bool written_ = false;
    QTimer settle_;
};

#include "board/filefollower.h"

#include <QFileInfo>

FileFollower::FileFollower(const QString &path, QObject *parent) : QObject(parent), path_(path)
{
    watchWhatIsThere();
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, [this] {
        watchWhatIsThere();
        Q_EMIT changed();
    });
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, [this] {
        const bool wasWatched = watcher_.files().contains(path_);
        watchWhatIsThere();
        if (!wasWatched && watcher_.files().contains(path_))
            Q_EMIT changed();
    });
}

void FileFollower::watchWhatIsThere()
{
    // The watcher drops what is removed or replaced; a name that is made anew shows in its directory, and a directory
    // that is made anew in the one above.
    if (!watcher_.files().contains(path_) && QFileInfo::exists(path_))
        watcher_.addPath(path_);
    for (QString folder = QFileInfo(path_).path(); folder != QLatin1String("/"); folder = QFileInfo(folder).path()) {
        if (!watcher_.directories().contains(folder) && QFileInfo::exists(folder))
            watcher_.addPath(folder);
    }
}

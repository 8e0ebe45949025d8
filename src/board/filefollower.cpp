// SPDX-License-Identifier: MIT
#include "board/filefollower.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// A writer empties, fills and renames a file within a moment; one look is enough for all that.
constexpr int SettleMs = 100;

// As many as the kernel follows.
constexpr int MaxLinks = 40;

} // namespace

FileFollower::FileFollower(const QString &path, QObject *parent)
    : QObject(parent), path_(path), mounts_(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC))
{
    settle_.setSingleShot(true);
    settle_.setInterval(SettleMs);
    connect(&settle_, &QTimer::timeout, this, &FileFollower::look);
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &FileFollower::lookSoon);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, [this] {
        written_ = true;
        lookSoon();
    });
    if (mounts_.isValid()) { // the watcher does not see what is mounted
        mounted_ = std::make_unique<QSocketNotifier>(mounts_.get(), QSocketNotifier::Exception);
        connect(mounted_.get(), &QSocketNotifier::activated, this, &FileFollower::lookSoon);
    }
    look();
}

/// The folders, those that links in the path lead through, and the file, as far as they exist.
FileFollower::Way FileFollower::wayTo(const QString &path)
{
    const auto namesIn = [](const QString &text) { return text.split(QLatin1Char('/'), Qt::SkipEmptyParts); };
    Way way;
    QStringList names = namesIn(path);
    QString place = QStringLiteral("/");
    struct stat status = {};
    for (int links = 0; ::stat(QFile::encodeName(place).constData(), &status) == 0;) {
        const bool readable = ::access(QFile::encodeName(place).constData(), R_OK) == 0;
        way.insert(place, {status.st_dev, status.st_ino, readable});
        if (names.isEmpty())
            break;
        place = QDir(place).filePath(names.takeFirst());
        const QFileInfo info(place);
        if (info.isSymLink() && ++links <= MaxLinks) {
            names = namesIn(info.symLinkTarget()) + names;
            place = QStringLiteral("/");
        }
    }
    return way;
}

void FileFollower::lookSoon()
{
    if (!settle_.isActive())
        settle_.start();
}

void FileFollower::look()
{
    const Way way = wayTo(path_);
    const QStringList watched = watcher_.files() + watcher_.directories();
    // The watcher stays with files and folders that are no longer on the way, and drops those that are removed.
    if (way != way_ || watched.size() != watched_) {
        if (!watched.isEmpty())
            watcher_.removePaths(watched);
        watcher_.addPaths(way.keys());
        watched_ = watcher_.files().size() + watcher_.directories().size();
        way_ = way;
        written_ = true;
        settle_.start(); // the way may have changed before it was watched
    }
    if (std::exchange(written_, false))
        Q_EMIT changed();
}

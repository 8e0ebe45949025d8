#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>

/// Follows a file for as long as it lives: also one that is replaced by rename, removed and written again, or not there
/// yet, in a directory that may not be there yet either.
class FileFollower : public QObject {
    Q_OBJECT
public:
    explicit FileFollower(const QString &path, QObject *parent = nullptr);

Q_SIGNALS:
    /// The file was written, replaced, removed or made.
    void changed();

private:
    void watchWhatIsThere();

    QString path_;
    QFileSystemWatcher watcher_;
};

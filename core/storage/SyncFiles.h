#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// The files that sync engines (Syncthing, Nextcloud/ownCloud, Dropbox, Seafile) put into a data
// folder besides the records: conflict copies, which are user data and are kept until the user
// decides, and temporary files of writes in progress, which are never read.
namespace SyncFiles {

// For a conflict copy, the name of the file it is a copy of:
//   "2026-11-24-2EFE5B.sync-conflict-20261124-101010-ABCDEFG.json" (Syncthing),
//   "2026-11-24-2EFE5B (conflicted copy 2026-11-24 101010).json" (Nextcloud, Dropbox),
//   "2026-11-24-2EFE5B_conflict-20261124-101010.json" (ownCloud),
//   "2026-11-24-2EFE5B (SFConflict ann@example.com 2026-11-24-10-10-10).json" (Seafile)
// all give "2026-11-24-2EFE5B.json". Nothing for any other name.
std::optional<QString> conflictOriginal(const QString& name);
inline bool isConflictCopy(const QString& name)
{
    return conflictOriginal(name).has_value();
}
// The name itself, or for a conflict copy the name of its original.
QString originalName(const QString& name);

// A write in progress or a partial download: ".syncthing.x.json.tmp", "~x.tmp", "x.json.part",
// hidden files and the like.
bool isTemporary(const QString& name);

// The conflict copies of `fileName` in `folder`, sorted by name.
QStringList conflictCopies(const QString& folder, const QString& fileName);

// A name for a conflict copy that Ledra itself keeps (when a folder left over by another machine
// is taken into a profile): "styling.json" -> "styling.ledra-conflict-20261124-101010-FOLDER.json"
// in Syncthing's pattern, so every reader sees it as one.
QString makeConflictName(const QString& fileName, const QString& tag);

// When a file was last changed (milliseconds since the epoch) and its size; a missing file has
// size -1. One stat call, no time zone conversion: loading a folder takes thousands of these.
struct Stamp
{
    qint64 modified = 0;
    qint64 size = -1;
    friend bool operator==(const Stamp&, const Stamp&) = default;
};
Stamp stampOf(const QString& path);

// Reads a whole file that another program may be writing: when its size or time of change
// differs before and after reading, it is read again (a few times, then the last read is taken).
// `stamp` receives the file's stamp as read.
std::optional<QByteArray> readSettled(const QString& path, QString* error = nullptr, Stamp* stamp = nullptr);

} // namespace SyncFiles

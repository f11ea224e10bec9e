#pragma once

#include "util/Bounds.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace Files {

// How a file from outside is read. Every read is bounded; what else is accepted depends on who
// could have put the file there.
struct ReadLimits
{
    qint64 maxBytes = Bounds::fileBytes;
    // False: a symbolic link at the path itself is refused (folders that others write into).
    bool followLink = true;
    // False: pipes and devices are read too, up to maxBytes (files the user named on the
    // command line). True: only regular files, so that a FIFO or /dev/zero never blocks or
    // floods the reader.
    bool regularOnly = true;
};

// Reads a whole file; nullopt with `error` set when it cannot be read, is no regular file, or
// is larger than the limit. Never blocks on a FIFO.
std::optional<QByteArray> read(const QString& path, QString* error = nullptr, const ReadLimits& limits = {});

// Whether a folder may be reached through a symbolic link when writing into it.
enum class FolderLink
{
    allowed, // a folder the user chose (it may well be a link to another disk)
    refused  // a folder inside Ledra's own places, where a link was planted by someone else
};

// Writes the whole file through a temporary file in the same folder and a rename, so a crash
// leaves either the old or the new content, never a half-written or missing file. A symbolic
// link at `path` is replaced by the new file, never written through; the temporary file is
// created exclusively and never through a link either. An existing file keeps its permissions.
// Returns the error text.
std::optional<QString> writeAtomically(const QString& path, const QByteArray& content,
                                       FolderLink folderLink = FolderLink::allowed);

// Moves a finished file over `destination` in one step; a link there is replaced, not followed.
std::optional<QString> replace(const QString& source, const QString& destination);

// Copies a folder with everything inside into `destination` (created; must not exist yet).
// Symbolic links, pipes and devices inside are refused: copying a link's target would carry
// files from elsewhere into the copy.
std::optional<QString> copyRecursively(const QString& source, const QString& destination);

} // namespace Files

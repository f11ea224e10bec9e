#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace Files {

// Writes the whole file through a temporary file and a rename, so a crash leaves either the
// old or the new content, never a half-written or missing file. Returns the error text.
std::optional<QString> writeAtomically(const QString& path, const QByteArray& content);

// Reads a whole file; nullopt with `error` set when it cannot be read.
std::optional<QByteArray> read(const QString& path, QString* error = nullptr);

// Copies a folder with everything inside into `destination` (created; must not exist yet).
std::optional<QString> copyRecursively(const QString& source, const QString& destination);

} // namespace Files

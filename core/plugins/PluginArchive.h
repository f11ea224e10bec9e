#pragma once

#include "util/ZipArchive.h"

#include <QString>
#include <QtGlobal>

// Plugin archives and the file operations that install and replace plugin folders. Pure file
// work without shared state: safe to call from any thread. Failures throw PluginError.
namespace PluginArchive {

using Limits = ZipArchive::Limits;

// ZipArchive::extract, failing with a PluginError.
void extractZip(const QString& zipPath, const QString& destinationFolder, const Limits& limits = {});

// Moves a folder; across file systems (the temporary folder is often one of its own) by
// copying and deleting.
void moveFolder(const QString& source, const QString& destination);

// Copies a folder with everything inside to `destination`, which must not exist yet.
void copyFolder(const QString& source, const QString& destination);

// Removes a folder with everything inside; a missing folder is not an error.
void removeFolder(const QString& folder);

} // namespace PluginArchive

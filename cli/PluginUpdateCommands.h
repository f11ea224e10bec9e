#pragma once

#include <QString>

class PluginManager;

// The update actions of `ledra plugin`, for the plugin command to dispatch to. Both ask the
// forges named in the plugins' manifests and wait for the answers; they print their results,
// throw CliError for a failure and return the exit status.

// "check-updates": every plugin with a repository link, one line each.
int checkPluginUpdates(PluginManager& manager);

// "update ID": installs what the plugin's repository offers now.
int updatePlugin(PluginManager& manager, const QString& id);

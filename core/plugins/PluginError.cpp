#include "plugins/PluginError.h"

#include "l10n/Strings.h"

QString description(PluginUpdateError error)
{
    switch (error) {
    case PluginUpdateError::invalidRepositoryURL:
        return Strings::ui(u"Plugin URL is not a valid repository link.");
    case PluginUpdateError::unsupportedHost:
        return Strings::ui(u"Plugin updates are not supported for this repository host.");
    case PluginUpdateError::noUpdateSource:
        return Strings::ui(u"Repository has no release or commits to update from.");
    case PluginUpdateError::manifestNotFound:
        return Strings::ui(u"Downloaded archive does not contain a plugin.json.");
    case PluginUpdateError::invalidPlugin:
        return Strings::ui(u"Installed plugin is missing main.js.");
    }
    return {};
}

PluginError::PluginError(PluginUpdateError error) : PluginError(error, description(error)) {}

PluginError::PluginError(PluginUpdateError error, const QString& message) : PluginError(message)
{
    m_case = error;
}

PluginError::PluginError(const QString& message)
    : std::runtime_error(message.toStdString()), m_message(message)
{}

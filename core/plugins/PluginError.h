#pragma once

#include <QString>

#include <optional>
#include <stdexcept>

// The failures of plugin updates that the user is told about, in the order of their
// descriptions. Installation and archive handling report two of them as well.
enum class PluginUpdateError
{
    invalidRepositoryURL,
    unsupportedHost,
    noUpdateSource,
    manifestNotFound,
    invalidPlugin,
};

// The localised description of a case ("Installed plugin is missing main.js.").
QString description(PluginUpdateError error);

// Thrown by plugin installation, archive extraction and the guarded replacement. Carries
// either one of the cases above or a failure of its own (a file that could not be copied, an
// unsafe archive entry); message() is the text to show in either case.
class PluginError : public std::runtime_error
{
public:
    explicit PluginError(PluginUpdateError error);
    // A case told with other words (installation has its own text for a missing manifest).
    PluginError(PluginUpdateError error, const QString& message);
    explicit PluginError(const QString& message);

    std::optional<PluginUpdateError> errorCase() const { return m_case; }
    QString message() const { return m_message; }

private:
    std::optional<PluginUpdateError> m_case;
    QString m_message;
};

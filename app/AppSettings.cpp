#include "AppSettings.h"

using namespace Qt::Literals::StringLiterals;

namespace AppSettings {

bool invoiceDarkMode(const QSettings& settings)
{
    return settings.value(invoiceDarkModeKey, false).toBool();
}

bool pluginUpdateChecks(const QSettings& settings)
{
    return settings.value(pluginUpdateChecksKey, true).toBool();
}

std::optional<Language> interfaceLanguage(const QSettings& settings)
{
    return enumFromRaw<Language>(settings.value(interfaceLanguageKey).toString());
}

void setInterfaceLanguage(QSettings& settings, std::optional<Language> language)
{
    settings.setValue(interfaceLanguageKey, language ? rawValue(*language) : u"system"_s);
}

} // namespace AppSettings

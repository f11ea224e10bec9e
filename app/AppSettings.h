#pragma once

#include "model/Enums.h"

#include <QSettings>
#include <QString>

#include <optional>

// The desktop program's preferences and window state, in the user's settings beside the keys
// the stores keep ("activeProfileId", "customDataPathBookmark").
namespace AppSettings {

inline constexpr char invoiceDarkModeKey[] = "invoiceDarkMode";
inline constexpr char pluginUpdateChecksKey[] = "Plugins.checkForUpdatesEnabled";
// "system", "en" or "de".
inline constexpr char interfaceLanguageKey[] = "interfaceLanguage";
inline constexpr char onboardingDoneKey[] = "onboardingDone";

inline constexpr char geometryKey[] = "mainWindow/geometry";
inline constexpr char windowStateKey[] = "mainWindow/state";
inline constexpr char splitterKey[] = "mainWindow/splitter";
inline constexpr char detailSplitterKey[] = "mainWindow/detailSplitter";
inline constexpr char listHeaderKey[] = "mainWindow/listHeader";
inline constexpr char filterKey[] = "mainWindow/filter";
inline constexpr char lastInvoiceKey[] = "mainWindow/lastInvoice";
inline constexpr char previewZoomKey[] = "mainWindow/previewZoom";
inline constexpr char showPreviewKey[] = "mainWindow/showPreview";

bool invoiceDarkMode(const QSettings& settings);
bool pluginUpdateChecks(const QSettings& settings);

// The language the user chose, or nothing to follow the system.
std::optional<Language> interfaceLanguage(const QSettings& settings);
void setInterfaceLanguage(QSettings& settings, std::optional<Language> language);

} // namespace AppSettings

#pragma once

#include "render/Styling.h"

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QObject>
#include <QString>

#include <optional>

class WebFontManager;

// Why setting a logo failed: domain "StylingManager" with code 2 for a wrong file type,
// code 1 without an active profile, the file system's error otherwise.
struct StylingError
{
    QString domain;
    int code = 0;
    QString description;
};

// Owns the Styling of the active profile: loads and saves "styling.json" in the profile's
// folder, picks up the logo and the user style sheet there, and reloads when the files change.
class StylingManager : public QObject
{
    Q_OBJECT

public:
    // `profileFolder` is the active profile's folder; empty when no profile is active.
    explicit StylingManager(const QString& profileFolder = {}, QObject* parent = nullptr);

    const std::optional<Styling>& styling() const { return m_styling; }
    QDateTime lastUpdated() const { return m_lastUpdated; }
    QString profileFolder() const { return m_folder; }
    QString stylingPath() const;

    // Follows the active profile: stops watching, loads the new folder's styling, watches it.
    void setProfileFolder(const QString& folder);
    void load();
    // Writes the current styling to styling.json (atomically). False when there is none or
    // the write failed (logged).
    bool save();
    // Replaces the styling and saves it.
    bool setStyling(const Styling& styling);

    // Copies an SVG, PNG, JPG/JPEG or WebP file into the profile folder and makes it the logo.
    std::optional<StylingError> setLogo(const QString& file);
    // What the styling editor does with a chosen or dropped file: refuses a wrong type and a
    // file that is not a readable image of its type (code 3), removes the old logo, then copies.
    std::optional<StylingError> replaceLogo(const QString& file);
    // Deletes the logo file from the profile folder.
    bool removeLogo();
    // Writes the user style sheet (into the folder's style sheet, else "custom.css"); empty
    // text removes the file.
    bool setCss(const QString& css);

    // Fills the empty font faces from the catalogue; true when any was filled in.
    bool resolveFontFaces(const WebFontManager& fonts);
    // Resolves the faces (and saves) whenever the catalogue reports that it has loaded.
    void observe(WebFontManager& fonts);

    void startWatching();
    void stopWatching();

    static QString invalidLogoTypeText();
    static QString unreadableLogoText();
    // True for a file of an accepted logo type whose contents are such an image.
    static bool isReadableLogo(const QString& file);

Q_SIGNALS:
    void stylingChanged();
    void lastUpdatedChanged();

private:
    QString cssPath() const;
    QString logoPath() const;

    QString m_folder;
    std::optional<Styling> m_styling;
    QDateTime m_lastUpdated;
    QFileSystemWatcher* m_watcher = nullptr;
    const WebFontManager* m_fonts = nullptr;
};

#pragma once

#include "render/Styling.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

// One face of a font family.
struct FontCut
{
    QString faceID;
    QString displayName;
    QString family;
    QString cssWeight;
    bool isItalic = false;
    bool isBundled = false;
    std::optional<QString> bundledPath; // a "qrc:" URL or file path of the web font

    friend bool operator==(const FontCut&, const FontCut&) = default;
};

// The fonts that documents can use: the web fonts that ship with the program (installed from
// npm at build time into the render resources' "Fonts" folder) and the installed system fonts.
class WebFontManager : public QObject
{
    Q_OBJECT

public:
    struct FontFamily
    {
        QString name;
        bool isBundled = false;
        QList<FontCut> cuts;
    };

    // The program-wide catalogue; it loads on first use.
    static WebFontManager& shared();

    explicit WebFontManager(QObject* parent = nullptr);

    // Reads the shipped fonts from `bundledFolder` (resource or file folder) and, when
    // `includeSystemFonts`, the families of the system font database (needs a QGuiApplication).
    // Emits fontCatalogDidLoad.
    void load(const QString& bundledFolder = defaultBundledFolder(), bool includeSystemFonts = true);
    bool isLoaded() const { return !m_families.isEmpty(); }

    const QList<FontFamily>& availableFamilies() const { return m_families; }
    QList<FontCut> cuts(const QString& family) const { return m_cutsByFamily.value(family); }
    std::optional<FontCut> cut(const QString& faceID) const;

    // The face of `family` with `cssWeight` (the upright one first), or the face named by
    // `faceID` when it exists and belongs to the family.
    std::optional<FontCut> face(const QString& family, const QString& cssWeight,
                                const std::optional<QString>& faceID = std::nullopt,
                                bool italic = false) const;
    // The nearest face by weight and style, falling back to the family's first face.
    std::optional<FontCut> closestFace(const QString& family, int weight, bool italic) const;

    // "@font-face" rules for the shipped faces that the styling's four font roles use,
    // including their bold and italic companions.
    QString fontFaceRules(const Styling& styling) const;

    static QString defaultBundledFolder() { return QStringLiteral(":/render/Fonts"); }
    // "Regular", "Bold" ... for a CSS weight.
    static QString weightName(int weight);
    // The weight a face name or file name stands for: a weight word or a number, else 400.
    static int weightFromName(const QString& name);
    static bool isItalicName(const QString& name);

Q_SIGNALS:
    void fontCatalogDidLoad();

private:
    void addCut(const FontCut& cut);

    QList<FontFamily> m_families;
    QHash<QString, QList<FontCut>> m_cutsByFamily;
    QHash<QString, FontCut> m_cutIndex;
};

#include "render/WebFontManager.h"

#include <QDir>
#include <QFileInfo>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QSet>
#include <QUrl>

#include <algorithm>
#include <tuple>

using namespace Qt::Literals::StringLiterals;

namespace {

// npm package names of the shipped families and the names documents use for them.
QString bundledFamilyName(const QString& stem)
{
    if (stem == u"source-serif-4")
        return u"Source Serif"_s;
    if (stem == u"ia-writer-duo")
        return u"iA Writer Duo"_s;
    QStringList words = stem.split(u'-', Qt::SkipEmptyParts);
    for (QString& word : words)
        word[0] = word[0].toUpper();
    return words.join(u' ');
}

int subfamilyRank(const QString& name)
{
    static const QRegularExpression special(u"display|caption|subhead|text|poster|mono"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    return name.contains(special) ? 1 : 0;
}

int widthRank(const QString& name)
{
    const QString lower = name.toLower();
    if (lower.contains(u"condensed") || lower.contains(u"narrow") || lower.contains(u"compressed"))
        return 1;
    if (lower.contains(u"expanded") || lower.contains(u"extended") || lower.contains(u"wide"))
        return 2;
    return 0;
}

auto sortKey(const FontCut& cut)
{
    return std::make_tuple(subfamilyRank(cut.displayName), cut.cssWeight.toInt(), widthRank(cut.displayName),
                           cut.isItalic ? 1 : 0, cut.displayName);
}

QString compact(QString text)
{
    return text.remove(u' ');
}

} // namespace

WebFontManager& WebFontManager::shared()
{
    static WebFontManager* manager = [] {
        auto* m = new WebFontManager(qApp);
        m->load();
        return m;
    }();
    return *manager;
}

WebFontManager::WebFontManager(QObject* parent) : QObject(parent) {}

QString WebFontManager::weightName(int weight)
{
    switch ((std::clamp(weight, 100, 900) + 50) / 100) {
    case 1:
        return u"Thin"_s;
    case 2:
        return u"Extra Light"_s;
    case 3:
        return u"Light"_s;
    case 5:
        return u"Medium"_s;
    case 6:
        return u"Semibold"_s;
    case 7:
        return u"Bold"_s;
    case 8:
        return u"Heavy"_s;
    case 9:
        return u"Black"_s;
    default:
        return u"Regular"_s;
    }
}

int WebFontManager::weightFromName(const QString& name)
{
    static const QRegularExpression number(u"(?:^|[-_ ])([1-9]00)(?:$|[-_ .])"_s);
    if (const auto match = number.match(name); match.hasMatch())
        return match.captured(1).toInt();
    const QString lower = compact(name.toLower()).remove(u'-');
    // Longer words first: "semibold" and "extralight" contain "bold" and "light".
    static const std::pair<const char16_t*, int> words[] = {
        {u"extralight", 200}, {u"semibold", 600}, {u"black", 900}, {u"heavy", 800},   {u"bold", 700},
        {u"medium", 500},     {u"light", 300},    {u"thin", 100},  {u"regular", 400},
    };
    for (const auto& [word, weight] : words)
        if (lower.contains(QStringView(word)))
            return weight;
    return 400;
}

bool WebFontManager::isItalicName(const QString& name)
{
    const QString base = QFileInfo(name).completeBaseName();
    return name.contains(u"Italic") || name.contains(u"italic") ||
           name.contains(u"oblique", Qt::CaseInsensitive) || base.endsWith(u"it", Qt::CaseInsensitive);
}

void WebFontManager::addCut(const FontCut& cut)
{
    auto& cuts = m_cutsByFamily[cut.family];
    if (std::any_of(cuts.cbegin(), cuts.cend(), [&](const FontCut& c) { return c.faceID == cut.faceID; }))
        return;
    cuts.append(cut);
}

void WebFontManager::load(const QString& bundledFolder, bool includeSystemFonts)
{
    m_families.clear();
    m_cutsByFamily.clear();
    m_cutIndex.clear();

    QSet<QString> bundledFamilies;
    const QDir folder(bundledFolder);
    const QFileInfoList files = folder.entryInfoList({u"*.woff2"_s, u"*.woff"_s}, QDir::Files, QDir::Name);
    for (const QFileInfo& file : files) {
        // "source-serif-4-latin-600-italic.woff2": family, subset, weight, style.
        const QString base = file.completeBaseName();
        static const QRegularExpression subset(u"-(latin|latin-ext|cyrillic|greek|vietnamese)-.*$"_s);
        QString stem = base;
        stem.remove(subset);
        const QString family = bundledFamilyName(stem);
        const int weight = weightFromName(base);
        const bool italic = isItalicName(file.fileName());
        FontCut cut;
        cut.family = family;
        cut.cssWeight = QString::number(weight);
        cut.isItalic = italic;
        cut.displayName = weight == 400 && italic ? u"Italic"_s
                          : italic                ? weightName(weight) + u" Italic"_s
                                                  : weightName(weight);
        cut.faceID = compact(family) + u'-' + compact(cut.displayName);
        cut.isBundled = true;
        const QString path = file.absoluteFilePath();
        cut.bundledPath = path.startsWith(u":/") ? u"qrc"_s + path : QUrl::fromLocalFile(path).toString();
        addCut(cut);
        bundledFamilies.insert(family);
    }

    if (includeSystemFonts && qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        const QStringList systemFamilies = QFontDatabase::families();
        for (const QString& family : systemFamilies) {
            if (bundledFamilies.contains(family) || QFontDatabase::isPrivateFamily(family))
                continue;
            for (const QString& style : QFontDatabase::styles(family)) {
                FontCut cut;
                cut.family = family;
                cut.displayName = style;
                cut.cssWeight = QString::number(
                    std::clamp((QFontDatabase::weight(family, style) + 50) / 100 * 100, 100, 900));
                cut.isItalic = QFontDatabase::italic(family, style);
                cut.faceID = compact(family) + u'-' + compact(style);
                addCut(cut);
            }
        }
    }

    QStringList names = m_cutsByFamily.keys();
    std::sort(names.begin(), names.end(), [&](const QString& a, const QString& b) {
        const bool bundledA = bundledFamilies.contains(a);
        const bool bundledB = bundledFamilies.contains(b);
        if (bundledA != bundledB)
            return bundledA;
        return a.localeAwareCompare(b) < 0;
    });
    for (const QString& name : names) {
        QList<FontCut>& cuts = m_cutsByFamily[name];
        std::sort(cuts.begin(), cuts.end(),
                  [](const FontCut& a, const FontCut& b) { return sortKey(a) < sortKey(b); });
        for (const FontCut& cut : cuts)
            m_cutIndex.insert(cut.faceID, cut);
        m_families.append({name, bundledFamilies.contains(name), cuts});
    }
    Q_EMIT fontCatalogDidLoad();
}

std::optional<FontCut> WebFontManager::cut(const QString& faceID) const
{
    const auto it = m_cutIndex.constFind(faceID);
    if (it == m_cutIndex.constEnd())
        return std::nullopt;
    return *it;
}

std::optional<FontCut> WebFontManager::face(const QString& family, const QString& cssWeight,
                                            const std::optional<QString>& faceID, bool italic) const
{
    if (faceID) {
        if (auto byId = cut(*faceID); byId && byId->family == family)
            return byId;
    }
    // Several faces of one weight (widths, optical sizes): the first by sort order wins.
    for (const FontCut& c : m_cutsByFamily.value(family))
        if (c.cssWeight == cssWeight && c.isItalic == italic)
            return c;
    return std::nullopt;
}

std::optional<FontCut> WebFontManager::closestFace(const QString& family, int weight, bool italic) const
{
    const QList<FontCut> cuts = m_cutsByFamily.value(family);
    const FontCut* best = nullptr;
    int bestScore = 0;
    for (const FontCut& c : cuts) {
        const int score = std::abs(c.cssWeight.toInt() - weight) + (c.isItalic == italic ? 0 : 1000);
        if (!best || score < bestScore) {
            best = &c;
            bestScore = score;
        }
    }
    return best ? std::optional<FontCut>(*best) : std::nullopt;
}

QString WebFontManager::fontFaceRules(const Styling& styling) const
{
    QList<FontCut> faces;
    auto use = [&](const QString& family, const QString& weight) {
        const int w = weight.toInt() > 0 ? weight.toInt() : 400;
        for (const auto& [wanted, italic] :
             {std::pair{w, false}, std::pair{std::max(w, 700), false}, std::pair{w, true}}) {
            const auto c = closestFace(family, wanted, italic);
            if (c && c->isBundled && !faces.contains(*c))
                faces.append(*c);
        }
    };
    use(styling.headlineFont, styling.headlineFontWeight);
    use(styling.primaryFont, styling.primaryFontWeight);
    use(styling.secondaryFont, styling.secondaryFontWeight);
    use(styling.labelFont, styling.labelFontWeight);

    QString rules;
    for (const FontCut& c : faces) {
        // Weight and style tell the engine which of a family's files serves bold and italic text.
        rules += u"@font-face {\n    font-family: '"_s + c.family + u"';\n    src: url('"_s + *c.bundledPath +
                 u"') format('woff2');\n    font-weight: "_s + c.cssWeight + u";\n    font-style: "_s +
                 (c.isItalic ? u"italic"_s : u"normal"_s) + u";\n}\n"_s;
    }
    return rules;
}

#include "l10n/CodeNames.h"

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QtEndian>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString isoCodesFolder = u"/usr/share/iso-codes/json/"_s;
const QString localeFolder = u"/usr/share/locale/"_s;

// The translations of a gettext catalogue (.mo). glibc's gettext cannot be asked for one
// language regardless of the process locale, which the interface language setting needs, so
// the catalogue's table is read directly: a header, then two tables of (length, offset) pairs.
QHash<QString, QString> readCatalogue(const QString& path)
{
    QHash<QString, QString> table;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return table;
    const QByteArray data = file.readAll();
    auto word = [&](qsizetype offset, bool bigEndian) -> quint32 {
        if (offset < 0 || offset + 4 > data.size())
            return 0;
        const auto* p = reinterpret_cast<const uchar*>(data.constData() + offset);
        return bigEndian ? qFromBigEndian<quint32>(p) : qFromLittleEndian<quint32>(p);
    };
    const bool bigEndian = word(0, true) == 0x950412de;
    if (!bigEndian && word(0, false) != 0x950412de)
        return table;
    const quint32 count = word(8, bigEndian);
    const quint32 originals = word(12, bigEndian);
    const quint32 translations = word(16, bigEndian);
    auto text = [&](quint32 tableOffset, quint32 index) {
        const quint32 length = word(tableOffset + index * 8, bigEndian);
        const quint32 offset = word(tableOffset + index * 8 + 4, bigEndian);
        if (qsizetype(offset) + qsizetype(length) > data.size())
            return QString();
        return QString::fromUtf8(data.constData() + offset, length);
    };
    for (quint32 i = 0; i < count && i < 100000; ++i)
        table.insert(text(originals, i), text(translations, i));
    return table;
}

struct IsoNames
{
    QHash<QString, QString> english; // code -> ISO name
    QHash<QString, QString> german;  // ISO name -> German name
};

IsoNames loadIsoNames(const QString& standard, const QString& listKey, const QString& codeKey)
{
    IsoNames names;
    QFile file(isoCodesFolder + u"iso_"_s + standard + u".json"_s);
    if (file.open(QIODevice::ReadOnly)) {
        const QJsonArray entries = QJsonDocument::fromJson(file.readAll()).object().value(listKey).toArray();
        for (const QJsonValue& entry : entries) {
            const QJsonObject object = entry.toObject();
            // Common names ("Bolivia") read better in a picker than official ones.
            const QString name = object.value(u"common_name"_s).toString(object.value(u"name"_s).toString());
            names.english.insert(object.value(codeKey).toString(), name);
        }
    }
    names.german = readCatalogue(localeFolder + u"de/LC_MESSAGES/iso_"_s + standard + u".mo"_s);
    return names;
}

const IsoNames& countryNames()
{
    static const IsoNames names = loadIsoNames(u"3166-1"_s, u"3166-1"_s, u"alpha_2"_s);
    return names;
}

const IsoNames& currencyNames()
{
    static const IsoNames names = loadIsoNames(u"4217"_s, u"4217"_s, u"alpha_3"_s);
    return names;
}

QString translated(const IsoNames& names, const QString& code, Language language, const QString& fallback)
{
    const QString english = names.english.value(code);
    if (english.isEmpty())
        return fallback;
    if (language == Language::german)
        return names.german.value(english, english);
    return english;
}

} // namespace

namespace CodeNames {

QString countryName(const Country& country, Language language)
{
    const QLocale::Territory territory = QLocale::codeToTerritory(country.code);
    const QString fallback =
        territory == QLocale::AnyTerritory ? country.code : QLocale::territoryToString(territory);
    return translated(countryNames(), country.code, language, fallback);
}

QString currencyName(const Currency& currency, Language language)
{
    return translated(currencyNames(), currency.code, language, currency.code);
}

const QList<Currency>& currencies()
{
    static const QList<Currency> list = [] {
        QList<Currency> found;
        for (const QLocale& locale :
             QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory)) {
            const QString code = locale.currencySymbol(QLocale::CurrencyIsoCode);
            if (code.size() == 3 && !found.contains(Currency{code}))
                found.append(Currency{code});
        }
        std::sort(found.begin(), found.end(),
                  [](const Currency& a, const Currency& b) { return a.code < b.code; });
        return found;
    }();
    return list;
}

} // namespace CodeNames

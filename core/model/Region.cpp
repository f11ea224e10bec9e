#include "model/Region.h"

#include <QLocale>

#include <algorithm>
#include <array>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Region {

Country system()
{
    const Country fallback{QStringLiteral("DE")};
    const QString fromEnvironment = qEnvironmentVariable("LEDRA_REGION").trimmed().toUpper();
    if (!fromEnvironment.isEmpty())
        return isSupported(Country{fromEnvironment}) ? Country{fromEnvironment} : fallback;
    const QLocale::Territory territory = QLocale::system().territory();
    if (territory == QLocale::AnyTerritory)
        return fallback;
    const Country country{QLocale::territoryToCode(territory)};
    return isSupported(country) ? country : fallback;
}

const QList<Country>& supportedCountries()
{
    static const QList<Country> countries = [] {
        QList<Country> list;
        for (int value = 1; value <= int(QLocale::LastTerritory); ++value) {
            const QString code = QLocale::territoryToCode(QLocale::Territory(value));
            // Region groups ("001", "EU") and the places the locale data knows apart that
            // ISO 3166-1 does not list (Canary Islands, Kosovo ...): e-invoices reject those.
            static const QStringList notIso{u"AC"_s, u"CP"_s, u"DG"_s, u"EA"_s, u"EU"_s,
                                            u"IC"_s, u"QO"_s, u"TA"_s, u"XK"_s};
            const bool alpha2 = code.size() == 2 && code[0].isUpper() && code[1].isUpper();
            if (alpha2 && !notIso.contains(code) && !list.contains(Country{code}))
                list.append(Country{code});
        }
        std::sort(list.begin(), list.end(),
                  [](const Country& a, const Country& b) { return a.code < b.code; });
        return list;
    }();
    return countries;
}

bool isSupported(const Country& country)
{
    const QList<Country>& countries = supportedCountries();
    return std::binary_search(countries.begin(), countries.end(), country,
                              [](const Country& a, const Country& b) { return a.code < b.code; });
}

Currency currencyOf(const Country& region)
{
    const QLocale::Territory territory = QLocale::codeToTerritory(region.code);
    if (territory != QLocale::AnyTerritory) {
        // Pick the locale Qt considers most likely for the territory; it carries its currency.
        const QList<QLocale> locales =
            QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, territory);
        for (const QLocale& locale : locales) {
            const QString iso = locale.currencySymbol(QLocale::CurrencyIsoCode);
            if (iso.size() == 3)
                return Currency{iso};
        }
    }
    return Currency{QStringLiteral("EUR")};
}

std::optional<double> defaultVatRate(const Country& taxResidency)
{
    static constexpr std::array<std::pair<std::string_view, double>, 31> rates{{
        {"DE", 19}, {"AT", 20}, {"CH", 8.1}, {"LI", 8.1},  {"BE", 21}, {"BG", 20}, {"HR", 25}, {"CY", 19},
        {"CZ", 21}, {"DK", 25}, {"EE", 24},  {"FI", 25.5}, {"FR", 20}, {"GR", 24}, {"HU", 27}, {"IE", 23},
        {"IT", 22}, {"LV", 21}, {"LT", 21},  {"LU", 17},   {"MT", 18}, {"NL", 21}, {"PL", 23}, {"PT", 23},
        {"RO", 21}, {"SK", 23}, {"SI", 22},  {"ES", 21},   {"SE", 25}, {"NO", 25}, {"GB", 20},
    }};
    for (const auto& [code, rate] : rates)
        if (QLatin1StringView(code.data(), qsizetype(code.size())) == taxResidency.code)
            return rate;
    return std::nullopt;
}

bool isGermanSpeaking(const Country& region)
{
    static const QStringList codes{QStringLiteral("DE"), QStringLiteral("AT"), QStringLiteral("CH"),
                                   QStringLiteral("LI")};
    return codes.contains(region.code);
}

} // namespace Region

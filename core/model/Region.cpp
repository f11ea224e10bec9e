#include "model/Region.h"

#include <QLocale>

#include <array>
#include <utility>

namespace Region {

Country system()
{
    const QByteArray fromEnvironment = qgetenv("LEDRA_REGION");
    if (fromEnvironment.size() == 2)
        return Country{QString::fromLatin1(fromEnvironment).toUpper()};
    const QLocale::Territory territory = QLocale::system().territory();
    if (territory == QLocale::AnyTerritory)
        return Country{QStringLiteral("US")};
    const QString code = QLocale::territoryToCode(territory);
    return Country{code.size() == 2 ? code : QStringLiteral("US")};
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
        {"DE", 19}, {"AT", 20}, {"CH", 8.1}, {"LI", 8.1}, {"BE", 21}, {"BG", 20}, {"HR", 25}, {"CY", 19},
        {"CZ", 21}, {"DK", 25}, {"EE", 24}, {"FI", 25.5}, {"FR", 20}, {"GR", 24}, {"HU", 27}, {"IE", 23},
        {"IT", 22}, {"LV", 21}, {"LT", 21}, {"LU", 17}, {"MT", 18}, {"NL", 21}, {"PL", 23}, {"PT", 23},
        {"RO", 21}, {"SK", 23}, {"SI", 22}, {"ES", 21}, {"SE", 25}, {"NO", 25}, {"GB", 20},
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

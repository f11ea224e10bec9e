#include "model/Profile.h"

#include "l10n/Strings.h"
#include "model/Region.h"

Profile Profile::makeNew(const Country& region)
{
    Profile profile;
    profile.id = QUuid::createUuid();
    const bool german = Region::isGermanSpeaking(region);
    profile.addressCountry = region;
    profile.taxResidency = region;
    profile.language = german ? Language::german : Language::english;
    profile.currency = Region::currencyOf(region);
    profile.vatPercentage = Region::defaultVatRate(region).value_or(0);
    profile.cancellationPrefix = german ? QStringLiteral("STO-") : QStringLiteral("CN-");
    profile.quotePrefix = german ? QStringLiteral("AN-") : QStringLiteral("QU-");
    return profile;
}

Profile Profile::makeNew()
{
    return makeNew(Region::system());
}

QString Profile::displayName() const
{
    const QString trimmed = profileName.value_or(QString()).trimmed();
    return trimmed.isEmpty() ? Strings::ui(QStringLiteral("Unnamed")) : trimmed;
}

#pragma once

#include "model/Codes.h"
#include "model/Enums.h"

#include <QString>
#include <QUuid>

#include <optional>

// One sender identity with its presets for new invoices and its reminder settings.
struct Profile
{
    QUuid id; // null until makeNew() or a file gives one
    // The name of the profile's folder; not stored in profile.json.
    std::optional<QString> profileName;
    QString icon = QStringLiteral("person.fill");
    QString name;
    QString businessName;
    QString addressLineOne;
    QString addressLineTwo;
    QString addressPostcode;
    QString addressCity;
    QString addressState;
    Country addressCountry{QStringLiteral("US")};
    QString email;
    QString phone;
    QString website;
    QString additional;
    QString iban;
    QString bic;
    QString taxNumber;
    QString vatNumber;
    QString additionalNumbers;
    Language language = Language::english;
    Currency currency{QStringLiteral("USD")};
    Country taxResidency{QStringLiteral("US")};
    double vatPercentage = 0;
    bool hideVat = false;
    VATExemptionReason vatExemptionReason = VATExemptionReason::none;
    QString marginalNote;
    QString numberFormat = QStringLiteral("{YYYY}-{NNN}");
    QString cancellationPrefix = QStringLiteral("CN-");
    QString quotePrefix = QStringLiteral("QU-");
    int startNumber = 1;
    std::optional<int> startNumberYear;
    NumberResetFrequency resetNumberFrequency = NumberResetFrequency::year;
    int daysToPay = 14;
    double hourlyRate = 0;
    double dailyRate = 0;
    double weeklyRate = 0;
    bool invoiceDarkMode = false;
    QString reminderTemplate;
    bool friendlyReminderEnabled = true;
    double latePaymentInterestRate = 0;
    double latePaymentFee = 40;
    // Days from a reminder's date to the payment deadline it sets.
    int reminderDaysToPay = 14;
    // What the mail extension attaches for an invoice of this profile.
    EInvoiceFormat eInvoiceFormat = EInvoiceFormat::pdf;
    // The e-invoice profile of its invoices that choose none themselves.
    EInvoiceProfile eInvoiceProfile = EInvoiceProfile::automatic;

    // A new profile with the presets of a region (language, currency, VAT rate, prefixes).
    static Profile makeNew(const Country& region);
    // The same for the system's region.
    static Profile makeNew();

    // profileName trimmed, or "Unnamed".
    QString displayName() const;

    friend bool operator==(const Profile&, const Profile&) = default;
};

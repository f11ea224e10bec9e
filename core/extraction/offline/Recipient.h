#pragma once

// Who the invoice goes to: the address blocks of a text, its labels and its signature.

#include "extraction/ExtractedInvoice.h"
#include "extraction/offline/Addresses.h"
#include "extraction/offline/Lines.h"

#include <QHash>
#include <QList>
#include <QString>
#include <optional>
#include <utility>

namespace OfflineExtraction {

// The lines of a text as address entries: what each is, by its label or its form.

enum class Role
{
    none,
    recipientBlock, // "Rechnungsadresse:", "Bill to:"
    otherBlock,     // "Lieferadresse:", "Absender:": an address that is not the recipient's
    name,
    company,
    street,
    lineTwo,
    postcode,
    city,
    postcodeCity,
    country,
    state,
    email,
    mailFrom,
    mailTo,
    mailOther,
    note,
};

struct Entry
{
    QString text;
    Role role = Role::none;
    int line = -1;
    int score = 0;      // a block label's say on whether the block is the recipient's
    bool opens = false; // the first entry of "Rechnungsadresse: Becker GmbH, …"
    std::optional<Place> place = std::nullopt;

    bool isBlank() const { return text.isEmpty() && role == Role::none; }
};

// What a label says about the address below it: how sure it is the recipient's, and whether
// it is the writer's own (so that the signature names its person).
constexpr int billingLabel = 10;       // "Rechnungsadresse:", "Bill to:"
constexpr int customerLabel = 6;       // "Kunde:": someone the writer deals with
constexpr int ownAddressLabel = 5;     // "Adresse:", "Our address:"
constexpr int otherAddressLabel = -10; // "Lieferadresse:", "Absender:"

const QHash<QString, std::pair<Role, int>>& labels();

bool isBlockRole(Role role);

QList<Entry> entriesOf(const QList<TextLine>& lines);

// The recipient is whoever the pasted text comes from: a freelancer pastes the customer's
// e-mail, order or address, so the signature below the sign-off is the customer's, while the
// addressees of the e-mail ("An:", "To:") are the user. Text quoted from earlier messages was
// cut before. Of several addresses, one labelled as the billing address wins; a shipping or
// sender address never counts; two unlabelled ones leave the address empty.
std::optional<ExtractedRecipient> findRecipient(const QList<Entry>& entries);

std::optional<QString> findNote(const QList<Entry>& entries);

} // namespace OfflineExtraction

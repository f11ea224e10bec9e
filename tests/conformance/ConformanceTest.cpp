// Writes a varied set of invoices through the `ledra` command as a user would, and has the
// official e-invoice validators judge every XML and every hybrid PDF: the CII D16B schema, the
// EN 16931 rules, the XRechnung 3.0 rules for documents that declare XRechnung, and veraPDF's
// PDF/A-3B rules. The validators live beside the repository (../shared/validation); without
// them the tests are skipped.

#include "EInvoiceMutants.h"
#include "OfficialValidators.h"
#include "numbering/NumberFormat.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "support/CliRunner.h"
#include "support/TestSupport.h"
#include "util/Files.h"
#include "validation/EInvoiceValidator.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <set>

using namespace Qt::Literals::StringLiterals;

namespace {

using OfficialValidators::Verdict;

const QString xrechnungGuideline = u"urn:cen.eu:en16931:2017#compliant#urn:xeinkauf.de:kosit:xrechnung_3.0"_s;
const QString en16931Guideline = u"urn:cen.eu:en16931:2017"_s;

// The ids of the rules that XRechnung adds to EN 16931 (BR-DE-*, the Peppol rules KoSIT merges
// in), read from the validators' own Schematron sources. They bind only documents that declare
// XRechnung (BT-24); an EN 16931 document answers to the schema and the EN 16931 rules alone.
const QSet<QString>& xrechnungRuleIds()
{
    static const QSet<QString> ids = [] {
        QSet<QString> found;
        static const QRegularExpression assertId(uR"re(\bid="([^"]+)")re"_s);
        for (const QString& name : {u"XRechnung-CII-validation.sch"_s, u"XRechnung-common.sch"_s}) {
            const QString text = QString::fromUtf8(
                Files::read(OfficialValidators::folder() + u"/schematron/"_s + name).value_or(QByteArray()));
            for (auto match = assertId.globalMatch(text); match.hasNext();)
                found.insert(match.next().captured(1));
        }
        return found;
    }();
    return ids;
}

// The guideline id (BT-24) a CII or UBL document declares.
QString declaredGuideline(const QString& path)
{
    static const QRegularExpression cii(
        uR"(GuidelineSpecifiedDocumentContextParameter>\s*<(?:\w+:)?ID>\s*([^<\s]*)\s*<)"_s);
    static const QRegularExpression ubl(uR"(<(?:\w+:)?CustomizationID>\s*([^<\s]*)\s*<)"_s);
    const QString text = QString::fromUtf8(Files::read(path).value_or(QByteArray()));
    const QRegularExpressionMatch match = cii.match(text);
    return match.hasMatch() ? match.captured(1) : ubl.match(text).captured(1);
}

// The failed rules that bind a file in the profile it declares: all of them for XRechnung, those
// of the schema and of EN 16931 for EN 16931.
QStringList bindingErrors(const Verdict& verdict, const QString& file)
{
    const bool xrechnung = declaredGuideline(file).contains(u"xrechnung"_s);
    QStringList errors;
    for (const QString& line : verdict.errors) {
        if (!line.startsWith(file + u' '))
            continue;
        const QString rule = line.mid(file.size() + 1).section(u' ', 1, 1);
        if (xrechnung || !xrechnungRuleIds().contains(rule))
            errors.append(line);
    }
    return errors;
}

// Two verdicts over the same files list the same rules (errors and warnings) per file and end
// in the same result lines.
void expectSameVerdicts(const Verdict& script, const Verdict& batched)
{
    auto byFile = [](const Verdict& verdict) {
        std::map<QString, std::set<QString>> rules;
        for (const QString& line : verdict.errors + verdict.warnings) {
            const QStringList parts = line.split(u' ');
            if (parts.size() >= 3)
                rules[parts[0]].insert(parts[1] + u' ' + parts[2]);
        }
        return rules;
    };
    EXPECT_EQ(script.results, batched.results);
    EXPECT_EQ(byFile(script), byFile(batched));
    EXPECT_EQ(script.unreadableReports, batched.unreadableReports);
    EXPECT_EQ(script.exitCode, batched.exitCode);
}

QByteArray sha256(const QString& path)
{
    return QCryptographicHash::hash(Files::read(path).value_or(QByteArray()), QCryptographicHash::Sha256);
}

InvoiceItem item(const QString& description, double quantity, Unit unit, double price, double vat)
{
    InvoiceItem line = InvoiceItem::makeNew();
    line.item = description;
    line.quantity = quantity;
    line.unit = unit;
    line.unitPrice = price;
    line.vatPercentage = vat;
    return line;
}

class Conformance : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (!QFileInfo(OfficialValidators::folder() + u"/validate-pdf"_s).isExecutable())
            GTEST_SKIP()
                << "the official validators are not at " << OfficialValidators::folder().toStdString()
                << " (they come with ../shared, which CI has; set LEDRA_VALIDATION_DIR to use others)";
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        m_environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
        m_environment.insert(u"LEDRA_REGION"_s, u"DE"_s);
        m_environment.insert(u"LEDRA_NOW"_s, u"2025-03-14T09:30:00+01:00"_s);
        m_environment.insert(u"LEDRA_TIMEZONE"_s, u"Europe/Berlin"_s);
        QDir().mkpath(outputFolder());
    }

    CliResult ledra(const QStringList& arguments)
    {
        return runLedra(QStringLiteral(LEDRA_CLI), arguments, m_environment);
    }

    QString outputFolder() const { return m_home.filePath(u"out"_s); }
    QString dataFolder() const { return m_home.filePath(u"data/Ledra/Data"_s); }

    // Creates the invoices in the data folder through the stores, the way the program does.
    // Returns the displayed number of each, with the file stem it is exported under.
    QList<std::pair<QString, QString>> writeInvoiceSet()
    {
        ScopedClock clock(TestSupport::berlin(u"2025-03-14T09:30:00"_s));
        QSettings settings(m_home.filePath(u"config/Ledra/Ledra.conf"_s), QSettings::IniFormat);
        ProfileManager profiles(settings, dataFolder(), Country{u"DE"_s});
        profiles.load();
        Profile sender = *profiles.activeProfile();
        sender.name = u"Mira Lindqvist"_s;
        sender.businessName = u"Lindqvist Design"_s;
        sender.addressLineOne = u"Gartenweg 3"_s;
        sender.addressPostcode = u"10115"_s;
        sender.addressCity = u"Berlin"_s;
        sender.email = u"mira@lindqvist.example"_s;
        sender.phone = u"+49 30 1234567"_s;
        sender.website = u"lindqvist.example"_s;
        sender.iban = u"DE89 3704 0044 0532 0130 00"_s;
        sender.bic = u"COBADEFFXXX"_s;
        sender.taxNumber = u"30/123/45678"_s;
        sender.vatNumber = u"DE123456789"_s;
        EXPECT_FALSE(profiles.saveProfile(sender));
        // The profile's documents carry a logo; its styling is written on first use.
        QFile::copy(TestSupport::dataPath(u"render/logo.svg"_s),
                    *profiles.activeProfileFolder() + u"/logo.svg"_s);

        InvoiceManager invoices(profiles);
        invoices.loadInvoices();
        QList<std::pair<QString, QString>> set;
        auto add = [&](const QString& stem, InvoiceType type, const std::function<void(Invoice&)>& fill) {
            Invoice invoice = type == InvoiceType::quote ? invoices.createQuote() : invoices.createInvoice();
            invoice.name = u"Jana Becker"_s;
            invoice.businessName = u"Becker & Söhne GmbH"_s;
            invoice.addressLineOne = u"Hafenstraße 12"_s;
            invoice.addressPostcode = u"20457"_s;
            invoice.addressCity = u"Hamburg"_s;
            invoice.addressCountry = Country{u"DE"_s};
            invoice.email = u"buchhaltung@becker.example"_s;
            invoice.serviceDateStart = TestSupport::berlinTimestamp(u"2025-03-01T10:00"_s);
            invoice.serviceDateEnd = TestSupport::berlinTimestamp(u"2025-03-13T10:00"_s);
            invoice.items = {item(u"Redesign of the product catalogue"_s, 12.5, Unit::hour, 85, 19),
                             item(u"Image licences"_s, 1, Unit::lumpSum, 240, 19),
                             item(u"Printed proof copies"_s, 3, Unit::piece, 19.99, 7)};
            fill(invoice);
            EXPECT_FALSE(invoices.saveInvoice(invoice));
            set.append({NumberFormat::displayNumber(invoice, sender), stem});
            return invoice;
        };
        const Invoice plain = add(u"plain"_s, InvoiceType::invoice, [](Invoice& i) {
            i.reference = u"PO-2025-0042"_s;
            i.note = u"Thank you for the **good** work together."_s;
            i.status = Status::sent;
        });
        add(u"percentage-discount-three-rates"_s, InvoiceType::invoice, [](Invoice& i) {
            i.items.append(item(u"Workshop for the in-house team"_s, 1, Unit::day, 480, 0));
            i.vatExemptionReason = VATExemptionReason::educationalServices;
            i.discountPercentage = 5;
        });
        add(u"fixed-discount"_s, InvoiceType::invoice, [](Invoice& i) { i.discountAmount = 68.12; });
        add(u"gross-prices"_s, InvoiceType::invoice, [](Invoice& i) {
            i.grossPrices = true;
            i.discountPercentage = 3;
            i.items.append(item(u"Train ticket"_s, 1, Unit::piece, 119.9, 7));
        });
        // Every tax situation at zero rate, each with what its rules ask for: the buyer's VAT ID
        // and a buyer abroad (BR-AE-02, BR-IC-02, BR-IC-12, BR-G-02), the exemption text or
        // code (BR-AE-10, BR-IC-10, BR-G-10, BR-E-10), none for zero-rated (BR-Z-10).
        for (VATExemptionReason reason :
             {VATExemptionReason::reverseCharge, VATExemptionReason::smallBusiness,
              VATExemptionReason::educationalServices, VATExemptionReason::medicalServices,
              VATExemptionReason::insuranceFinancial, VATExemptionReason::residentialRental,
              VATExemptionReason::intraCommunitySupply, VATExemptionReason::exportOutsideEU,
              VATExemptionReason::zeroRated, VATExemptionReason::otherExemption}) {
            add(u"exempt-"_s + rawValue(reason), InvoiceType::invoice, [reason](Invoice& i) {
                i.vatExemptionReason = reason;
                for (InvoiceItem& line : i.items)
                    line.vatPercentage = 0;
                i.language = Language::english;
                if (reason == VATExemptionReason::reverseCharge ||
                    reason == VATExemptionReason::intraCommunitySupply) {
                    i.businessName = u"Atelier Moreau SARL"_s;
                    i.addressLineOne = u"12 rue des Lilas"_s;
                    i.addressPostcode = u"69002"_s;
                    i.addressCity = u"Lyon"_s;
                    i.addressCountry = Country{u"FR"_s};
                    i.vatNumber = u"FR40303265045"_s;
                } else if (reason == VATExemptionReason::exportOutsideEU) {
                    i.businessName = u"Bergli Druck AG"_s;
                    i.addressLineOne = u"Seestrasse 8"_s;
                    i.addressPostcode = u"8002"_s;
                    i.addressCity = u"Zürich"_s;
                    i.addressCountry = Country{u"CH"_s};
                } else if (reason == VATExemptionReason::otherExemption) {
                    i.vatExemptionNote = u"Exempt under Article 132 (1) (i) of Directive 2006/112/EC"_s;
                    i.vatExemptionCode = u"VATEX-EU-132-1I"_s;
                }
            });
        }
        // A public customer: its Leitweg-ID as buyer reference and electronic address (BR-DE-15),
        // the order number beside it, and an early-payment discount in the terms (BR-DE-18).
        add(u"public-customer-skonto"_s, InvoiceType::invoice, [](Invoice& i) {
            i.businessName = u"Stadt Musterhausen, Amt für Kultur"_s;
            i.leitwegId = u"04011000-12345-03"_s;
            i.electronicAddress = u"04011000-12345-03"_s;
            i.electronicAddressScheme = u"0204"_s;
            i.email.clear();
            i.reference = u"B-2025-117"_s;
            i.skontoPercentage = 2;
            i.skontoDays = 10;
            i.daysToPay = 30;
        });
        add(u"special-characters-and-long-texts"_s, InvoiceType::invoice, [](Invoice& i) {
            i.name = u"Zoë O'Brien-Müller"_s;
            i.businessName = u"\"Ähnlich & Söhne\" <Straßenbau> GmbH"_s;
            i.addressLineTwo = u"c/o Büro 4 ½ – Hinterhaus"_s;
            i.reference = u"PO #42 & <urgent>"_s;
            i.items[0].item = u"Konzept, Entwurf & Reinzeichnung „Frühjahr“ — 3 Varianten à 2 Runden (inkl. "
                              u"Abstimmung < 1 h) "_s.repeated(6);
            i.items[1].item = u"Lizenz für Bilder: © Fotografin; Nutzung ≥ 2 Jahre; *alle* Medien"_s;
            i.note = u"Bitte überweisen Sie den Betrag & geben Sie die **Rechnungsnummer** an.\n\n"_s +
                     u"Zahlbar ohne Abzug. "_s.repeated(30);
            i.marginalNote = u"Öffnungszeiten: Mo–Fr 9–17 Uhr"_s;
        });
        add(u"sixty-lines"_s, InvoiceType::invoice, [](Invoice& i) {
            i.items.clear();
            for (int n = 1; n <= 60; ++n)
                i.items.append(item(u"Position %1: Wartung und Pflege"_s.arg(n), n % 7 + 0.25, Unit::hour,
                                    10 + n * 1.37, n % 3 == 0 ? 7 : 19));
            i.discountPercentage = 2.5;
        });
        add(u"one-line"_s, InvoiceType::invoice, [](Invoice& i) {
            i.items = {item(u"Consulting"_s, 1, Unit::day, 960, 19)};
            i.serviceDateEnd.reset();
            i.language = Language::english;
            i.currency = Currency{u"USD"_s};
        });
        add(u"quote"_s, InvoiceType::quote, [](Invoice& i) { i.note = u"Valid for 30 days."_s; });

        // The cancellation of the first invoice, made as the program makes it.
        const std::optional<Invoice> cancellation = invoices.cancelInvoice(plain.id);
        EXPECT_TRUE(cancellation);
        if (cancellation)
            set.append({NumberFormat::displayNumber(*cancellation, sender), u"cancellation"_s});
        return set;
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_environment;
};

} // namespace

TEST_F(Conformance, EveryDocumentPassesTheOfficialValidators)
{
    const QList<std::pair<QString, QString>> set = writeInvoiceSet();
    ASSERT_EQ(set.size(), 20);

    // US Letter pages come from a styling folder of their own.
    const QString letter = m_home.filePath(u"letter"_s);
    QDir().mkpath(letter);
    ASSERT_EQ(
        ledra({u"styling"_s, u"set"_s, u"pageFormat"_s, u"usLetter"_s, u"--profile-dir"_s, letter}).exitCode,
        0);

    QStringList xmlFiles;
    QStringList pdfFiles;
    QHash<QString, QString> xmlOf; // hybrid -> the XML written for the same invoice
    for (const auto& [number, stem] : set) {
        const QString xml = outputFolder() + u'/' + stem + u".xml"_s;
        CliResult result = ledra({u"xrechnung"_s, number, u"-o"_s, xml});
        ASSERT_EQ(result.exitCode, 0) << stem.toStdString() << ": " << result.err.toStdString();
        xmlFiles.append(xml);
        // Chosen by the customer: XRechnung for the public one with its Leitweg-ID, EN 16931 for
        // the businesses.
        EXPECT_EQ(declaredGuideline(xml),
                  stem == u"public-customer-skonto" ? xrechnungGuideline : en16931Guideline)
            << stem.toStdString();

        QStringList arguments{u"zugferd"_s, number, u"-o"_s, outputFolder() + u'/' + stem + u".pdf"_s};
        if (stem == u"one-line" || stem == u"sixty-lines")
            arguments += {u"--profile-dir"_s, letter};
        result = ledra(arguments);
        ASSERT_EQ(result.exitCode, 0) << stem.toStdString() << ": " << result.err.toStdString();
        pdfFiles.append(arguments[3]);
        xmlOf.insert(arguments[3], xml);
    }

    // Either profile can be chosen for any invoice; the hybrid's metadata names the one inside.
    const QString chosen = outputFolder() + u"/plain-as-xrechnung.xml"_s;
    ASSERT_EQ(
        ledra({u"xrechnung"_s, set.first().first, u"--profile"_s, u"xrechnung"_s, u"-o"_s, chosen}).exitCode,
        0);
    EXPECT_EQ(declaredGuideline(chosen), xrechnungGuideline);
    xmlFiles.append(chosen);
    const QString chosenPdf = outputFolder() + u"/public-as-en16931.pdf"_s;
    const QString publicNumber = std::find_if(set.begin(), set.end(), [](const auto& entry) {
                                     return entry.second == u"public-customer-skonto";
                                 })->first;
    ASSERT_EQ(ledra({u"zugferd"_s, publicNumber, u"--profile"_s, u"en16931"_s, u"-o"_s, chosenPdf}).exitCode,
              0);
    pdfFiles.append(chosenPdf);
    const QString chosenXml = outputFolder() + u"/public-as-en16931.xml"_s;
    ASSERT_EQ(
        ledra({u"xrechnung"_s, publicNumber, u"--profile"_s, u"en16931"_s, u"-o"_s, chosenXml}).exitCode, 0);
    EXPECT_EQ(declaredGuideline(chosenXml), en16931Guideline);
    xmlFiles.append(chosenXml);
    xmlOf.insert(chosenPdf, chosenXml);
    for (const QString& pdf : pdfFiles) {
        const QByteArray bytes = Files::read(pdf).value_or(QByteArray());
        const bool xrechnung = pdf.endsWith(u"/public-customer-skonto.pdf"_s);
        EXPECT_TRUE(bytes.contains(xrechnung ? "<fx:ConformanceLevel>XRECHNUNG</fx:ConformanceLevel>"
                                             : "<fx:ConformanceLevel>EN 16931</fx:ConformanceLevel>"))
            << pdf.toStdString();
    }
    EXPECT_EQ(ledra({u"xrechnung"_s, publicNumber, u"--profile"_s, u"peppol"_s}).exitCode, 1);

    // Reading hybrids, ours and other software's, never changes them: listing and extracting
    // the attachment and importing the e-invoice leave every byte in place.
    const QString base = outputFolder() + u"/base.pdf"_s;
    const QString cairo = outputFolder() + u"/cairo.pdf"_s;
    const QString foreign = outputFolder() + u"/foreign-hybrid.pdf"_s;
    ASSERT_EQ(ledra({u"pdf"_s, set.first().first, u"-o"_s, base}).exitCode, 0);
    if (!QStandardPaths::findExecutable(u"pdftocairo"_s).isEmpty()) {
        // A hybrid whose pages another program wrote (cairo), and one made entirely by qpdf.
        ASSERT_EQ(runLedra(u"pdftocairo"_s, {u"-pdf"_s, base, cairo}).exitCode, 0);
        const QString onCairo = outputFolder() + u"/cairo-zugferd.pdf"_s;
        const CliResult result =
            ledra({u"zugferd"_s, set.first().first, u"--pdf"_s, cairo, u"-o"_s, onCairo});
        ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
        pdfFiles.append(onCairo);
        xmlOf.insert(onCairo, xmlFiles.first());
        ASSERT_EQ(
            runLedra(u"qpdf"_s, {cairo, u"--add-attachment"_s, xmlFiles.first(), u"--key=factur-x.xml"_s,
                                 u"--filename=factur-x.xml"_s, u"--mimetype=text/xml"_s, u"--"_s, foreign})
                .exitCode,
            0);
        xmlOf.insert(foreign, xmlFiles.first());
    }
    QStringList read = pdfFiles;
    if (QFileInfo::exists(foreign))
        read.append(foreign);
    for (const QString& pdf : read) {
        const QByteArray before = sha256(pdf);
        const QString extracted = pdf + u".extracted.xml"_s;
        EXPECT_EQ(ledra({u"attachments"_s, pdf}).exitCode, 0) << pdf.toStdString();
        EXPECT_EQ(ledra({u"attachments"_s, pdf, u"--xml"_s, u"-o"_s, extracted}).exitCode, 0);
        const CliResult imported = ledra({u"import-einvoice"_s, pdf});
        EXPECT_EQ(imported.exitCode, 0) << pdf.toStdString() << ": " << imported.err.toStdString();
        EXPECT_EQ(sha256(pdf), before) << pdf.toStdString() << " changed by reading it";
        // The hybrid carries the very XML that `ledra xrechnung` writes (validate-pdf checks it).
        EXPECT_EQ(sha256(extracted), sha256(xmlOf.value(pdf))) << pdf.toStdString();
    }

    const Verdict xml = OfficialValidators::validateXml(xmlFiles);
    const Verdict pdf = OfficialValidators::validatePdf(pdfFiles);
    for (const QString& warning : xml.warnings + pdf.warnings)
        std::cout << "warning: " << warning.toStdString() << '\n';
    EXPECT_EQ(xml.results.size(), xmlFiles.size());
    EXPECT_EQ(pdf.results.size(), pdfFiles.size());
    for (const QString& file : xmlFiles)
        EXPECT_TRUE(bindingErrors(xml, file).isEmpty()) << bindingErrors(xml, file).join(u'\n').toStdString();
    // These invoices carry everything XRechnung asks for, so every hybrid passes the validator's
    // full set whichever profile it declares.
    EXPECT_TRUE(pdf.errors.isEmpty()) << pdf.errors.join(u'\n').toStdString();
    EXPECT_EQ(pdf.exitCode, 0) << pdf.results.join(u'\n').toStdString();

    // The batched checks pass and fail PDFs as the validators' own script does: a hybrid of
    // ours, and a plain PDF without an e-invoice inside.
    const QStringList few{pdfFiles.first(), base};
    const Verdict script = OfficialValidators::runScript(u"validate-pdf"_s, few);
    const Verdict batched = OfficialValidators::validatePdf(few);
    EXPECT_EQ(script.results, batched.results);
    EXPECT_EQ(script.exitCode, batched.exitCode);
}

// Received e-invoices of other software come back out as valid e-invoices in the profile they
// came in: each CII and UBL sample is imported into a profile with complete sender data, written
// again (UBL as CII, the only syntax we write) and validated by the rules of the profile it
// declares. What the writer needs of the buyer and the tax situation (electronic address and
// scheme, VAT ID, exemption text and code, categories O and Z) must survive the import.
//
// Profiles we do not write come back as the nearest one we do: the XRechnung extension and
// its variants as XRechnung (they extend it), Factur-X/ZUGFeRD MINIMUM to EXTENDED and other
// CIUS of the norm as EN 16931. Every sample is also written as EN 16931 on request, the profile
// a business customer gets, and must pass the EN 16931 rules.
TEST_F(Conformance, ImportedSamplesAreWrittenAgainValidInTheirOwnProfile)
{
    QStringList paths;
    for (const char* folder : {LEDRA_EINVOICE_SAMPLES, LEDRA_EINVOICE_SAMPLES_UBL}) {
        const QDir samples(QString::fromUtf8(folder));
        for (const QString& file : samples.entryList({u"*.xml"_s}, QDir::Files, QDir::Name))
            paths << samples.filePath(file);
    }
    if (paths.isEmpty())
        GTEST_SKIP() << "no samples at " << LEDRA_EINVOICE_SAMPLES;
    for (const auto& [key, value] :
         {std::pair{u"name"_s, u"Mira Lindqvist"_s}, std::pair{u"email"_s, u"mira@lindqvist.example"_s},
          std::pair{u"phone"_s, u"+49 30 1234567"_s}, std::pair{u"iban"_s, u"DE89 3704 0044 0532 0130 00"_s},
          std::pair{u"bic"_s, u"COBADEFFXXX"_s}, std::pair{u"taxNumber"_s, u"30/123/45678"_s},
          std::pair{u"vatNumber"_s, u"DE123456789"_s}})
        ASSERT_EQ(ledra({u"profile"_s, u"set"_s, key, value}).exitCode, 0) << key.toStdString();
    const CliResult imported = ledra(QStringList{u"import-einvoice"_s} + paths);
    ASSERT_EQ(imported.exitCode, 0) << imported.err.toStdString();

    // "FILE: imported as NUMBER (ID)", one line per sample.
    static const QRegularExpression line(uR"(^(.+): imported as (\S+) \()"_s,
                                         QRegularExpression::MultilineOption);
    QHash<QString, QString> numberOf;
    for (auto match = line.globalMatch(imported.out); match.hasNext();) {
        const QRegularExpressionMatch next = match.next();
        numberOf.insert(next.captured(1), next.captured(2));
    }
    ASSERT_EQ(numberOf.size(), paths.size()) << imported.out.toStdString();

    QStringList written;
    for (const QString& sample : paths) {
        const QString number = numberOf.value(sample);
        const QString stem = outputFolder() + u'/' + QFileInfo(sample).completeBaseName();
        const QString own = declaredGuideline(sample);
        ASSERT_FALSE(own.isEmpty()) << sample.toStdString();
        const QString expected =
            own.contains(u"xeinkauf.de:kosit:xrechnung"_s) ? xrechnungGuideline : en16931Guideline;

        const QString again = stem + u"-again.xml"_s;
        CliResult result = ledra({u"xrechnung"_s, number, u"-o"_s, again});
        EXPECT_EQ(result.exitCode, 0) << sample.toStdString() << ": " << result.err.toStdString();
        if (result.exitCode == 0) {
            written << again;
            EXPECT_EQ(declaredGuideline(again), expected) << sample.toStdString();
        }
        const QString business = stem + u"-en16931.xml"_s;
        result = ledra({u"xrechnung"_s, number, u"--profile"_s, u"en16931"_s, u"-o"_s, business});
        EXPECT_EQ(result.exitCode, 0) << sample.toStdString() << ": " << result.err.toStdString();
        if (result.exitCode == 0) {
            written << business;
            EXPECT_EQ(declaredGuideline(business), en16931Guideline) << sample.toStdString();
        }
    }
    EXPECT_EQ(written.size(), 2 * paths.size());
    const Verdict verdict = OfficialValidators::validateXml(written);
    EXPECT_EQ(verdict.results.size(), written.size());
    for (const QString& file : written)
        EXPECT_TRUE(bindingErrors(verdict, file).isEmpty())
            << bindingErrors(verdict, file).join(u'\n').toStdString();
}

namespace {

// The rule ids a validate-xml run reports per file. A rule set that stops at a value it cannot
// cast shows there as a "rules-not-run" line or as no lines at all (its report cut short);
// those are counted in `stopped` and left out of the ids.
std::map<QString, std::set<QString>> referenceRuleIds(const Verdict& verdict, int& stopped)
{
    stopped += verdict.unreadableReports;
    std::map<QString, std::set<QString>> ids;
    for (const QString& line : verdict.results)
        ids[line.section(u' ', 1, 1)];
    for (const QString& line : verdict.errors + verdict.warnings) {
        const QStringList parts = line.split(u' ');
        if (parts.size() < 3)
            continue;
        if (parts[2].endsWith(u"-rules-not-run"_s)) {
            ++stopped;
            ids[parts[0]];
            continue;
        }
        ids[parts[0]].insert(parts[2]);
    }
    return ids;
}

} // namespace

// Ledra's own validator gives the official verdicts: on every sample of other producers, every
// document Ledra writes and several hundred broken variants of them, it reports exactly the set
// of rules (errors and warnings) that the reference processor reports.
TEST_F(Conformance, BuiltInValidatorAgreesWithTheOfficialValidator)
{
    QStringList originals;
    for (const QString& folder :
         {QStringLiteral(LEDRA_EINVOICE_SAMPLES), QStringLiteral(LEDRA_EINVOICE_SAMPLES_UBL)}) {
        const QDir dir(folder);
        for (const QString& file : dir.entryList({u"*.xml"_s}, QDir::Files, QDir::Name))
            originals << dir.filePath(file);
    }
    if (originals.isEmpty())
        GTEST_SKIP() << "no samples beside the repository";
    const qsizetype sampleCount = originals.size();
    for (const auto& [number, stem] : writeInvoiceSet()) {
        const QString xml = outputFolder() + u"/written-"_s + stem + u".xml"_s;
        const CliResult result = ledra({u"xrechnung"_s, number, u"-o"_s, xml});
        ASSERT_EQ(result.exitCode, 0) << stem.toStdString() << ": " << result.err.toStdString();
        originals << xml;
    }

    // Five broken variants of each document, one kind of damage after another.
    QStringList mutants;
    QHash<QString, QString> whatChanged;
    const QString mutantFolder = outputFolder() + u"/mutants"_s;
    QDir().mkpath(mutantFolder);
    for (qsizetype i = 0; i < originals.size(); ++i) {
        const auto made =
            EInvoiceMutants::make(Files::read(originals[i]).value_or(QByteArray()), 5, 1000u + unsigned(i));
        for (size_t k = 0; k < made.size(); ++k) {
            const QString path =
                u"%1/%2-%3-%4.xml"_s.arg(mutantFolder, QFileInfo(originals[i]).completeBaseName())
                    .arg(k)
                    .arg(made[k].kind);
            ASSERT_FALSE(Files::writeAtomically(path, made[k].xml));
            mutants << path;
            whatChanged.insert(path, made[k].description);
        }
    }
    ASSERT_GE(mutants.size(), 300);

    // The batched runs of the official rule sets say what the validators' own script says, on a
    // few files of each kind: another producer's CII and UBL, ours, broken ones, a missing one.
    QStringList few{originals.first(), originals[sampleCount - 1], originals[sampleCount]};
    for (qsizetype i = 0; i < mutants.size() && few.size() < 9; i += 37)
        few << mutants[i];
    few << outputFolder() + u"/no-such-file.xml"_s;
    expectSameVerdicts(OfficialValidators::runScript(u"validate-xml"_s, few),
                       OfficialValidators::validateXml(few));

    const QStringList all = originals + mutants;
    int referenceStopped = 0;
    const std::map<QString, std::set<QString>> reference =
        referenceRuleIds(OfficialValidators::validateXml(all), referenceStopped);
    ASSERT_EQ(qsizetype(reference.size()), all.size());

    std::set<QString> fired;
    QStringList disagreements;
    qsizetype agreeing = 0;
    int stopped = 0;
    for (const QString& file : all) {
        const ValidationReport report =
            EInvoiceValidator::shared().validateFile(file, EInvoiceValidator::Rules::XRechnung);
        std::set<QString> ours;
        for (const ValidationFailure& f : report.failures) {
            if (f.ruleId.endsWith(u"-NOT-APPLICABLE"_s))
                ++stopped;
            else
                ours.insert(f.ruleId);
        }
        const std::set<QString>& theirs = reference.at(file);
        fired.insert(theirs.begin(), theirs.end());
        if (ours == theirs) {
            ++agreeing;
            continue;
        }
        QStringList missing, extra;
        for (const QString& id : theirs)
            if (!ours.count(id))
                missing << id;
        for (const QString& id : ours)
            if (!theirs.count(id))
                extra << id;
        disagreements << u"%1 (%2): missing %3, extra %4"_s.arg(file, whatChanged.value(file, u"original"_s),
                                                                missing.join(u','), extra.join(u','));
    }
    std::cout << "validator agreement: " << agreeing << " of " << all.size() << " files (" << sampleCount
              << " samples, " << originals.size() - sampleCount << " written documents, " << mutants.size()
              << " mutants); " << fired.size() << " rules fired at least once; " << stopped
              << " rule-set runs stopped at a value they could not cast\n";
    EXPECT_TRUE(disagreements.isEmpty()) << disagreements.join(u'\n').toStdString();
    // Where the reference processor stopped, so did Ledra (and only there).
    EXPECT_EQ(stopped, referenceStopped);
}

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class SchematronRuleSet;

// One rule a document breaks.
struct ValidationFailure
{
    QString ruleId;   // "BR-CO-10", "BR-DE-15", "XSD" for the CII schema
    QString flag;     // "fatal", "error", "warning" or "information"
    QString text;     // the rule's own text (English or German, as the rule set words it)
    QString location; // path of the element the rule looked at, "/rsm:CrossIndustryInvoice[1]/…"
    int line = 0;     // line of that element in the XML, 0 when unknown
    QString ruleSet;  // "EN 16931", "XRechnung", "CII D16B schema"
    bool isError() const { return flag != u"warning" && flag != u"information"; }
};

// One step of a failure's location: "/rsm:CrossIndustryInvoice[1]/ram:IncludedNote[2]" has the
// steps {"CrossIndustryInvoice", 1} and {"IncludedNote", 2}; a step without a position has 0.
struct LocationStep
{
    QString name; // without its namespace prefix
    int position = 0;
};
std::vector<LocationStep> locationSteps(const QString& location);

struct ValidationReport
{
    enum class Syntax
    {
        Unknown,
        CII,
        UBL
    };
    Syntax syntax = Syntax::Unknown;
    bool embeddedInPdf = false; // the XML came out of a hybrid PDF
    bool xrechnungRules = false;
    QStringList ruleSets; // the rule sets applied, in order
    std::vector<ValidationFailure> failures;
    // Set when the file could not be checked at all (not XML, not an e-invoice, a PDF without
    // e-invoice XML); such a file is invalid.
    QString problem;

    bool valid() const;
    int errorCount() const;
    int warningCount() const;
};

// Checks e-invoices against the official rules: the UN/CEFACT CII D16B schema (CII only), the
// EN 16931 rules for CII or UBL and, on request or when the document declares XRechnung, the
// XRechnung rules with the Peppol rules merged. The rule files are read from a folder (by
// default the copy built into the program) when first needed and then kept.
class EInvoiceValidator
{
public:
    enum class Rules
    {
        Automatic,
        EN16931,
        XRechnung
    };

    // `rulesFolder` holds the .sch files and schema/; empty means rulesFolderDefault().
    explicit EInvoiceValidator(QString rulesFolder = {});
    ~EInvoiceValidator();
    EInvoiceValidator(const EInvoiceValidator&) = delete;
    EInvoiceValidator& operator=(const EInvoiceValidator&) = delete;

    // The process-wide validator with the default rules.
    static EInvoiceValidator& shared();
    // LEDRA_VALIDATION_RULES when set (to try a new rule release without rebuilding), else the
    // rules built into the program.
    static QString rulesFolderDefault();

    ValidationReport validateXml(const QByteArray& xml, Rules rules = Rules::Automatic) const;
    // CII or UBL XML, or a hybrid PDF (its embedded XML), told apart by the content.
    ValidationReport validateBytes(const QByteArray& bytes, Rules rules = Rules::Automatic) const;
    // Throws nothing: an unreadable file is a report with a problem.
    ValidationReport validateFile(const QString& path, Rules rules = Rules::Automatic) const;

    // Reads every rule set now, so later checks are fast; the error names what failed.
    bool preload(QString* error = nullptr) const;

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

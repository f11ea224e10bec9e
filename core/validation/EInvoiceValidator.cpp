#include "validation/EInvoiceValidator.h"

#include "einvoice/PdfAttachments.h"
#include "validation/Schematron.h"
#include "validation/XPath.h"

#include <QFile>
#include <QFileInfo>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlIO.h>
#include <libxml/xmlschemas.h>

#include <mutex>
#include <stdexcept>

using namespace Qt::Literals::StringLiterals;

namespace {

const auto ciiNamespace = u"urn:un:unece:uncefact:data:standard:CrossIndustryInvoice:100"_s;
const auto ublInvoiceNamespace = u"urn:oasis:names:specification:ubl:schema:xsd:Invoice-2"_s;
const auto ublCreditNoteNamespace = u"urn:oasis:names:specification:ubl:schema:xsd:CreditNote-2"_s;
constexpr qint64 maxFileBytes = 64 * 1024 * 1024;

// libxml2 reads the schema's imports through this scheme, so the schema files can live in the
// program's resources as well as in a folder.
constexpr char schemaScheme[] = "ledra-rules:///";

QString& schemaFolder()
{
    static QString folder;
    return folder;
}

int matchSchemaUri(const char* uri)
{
    return uri && qstrncmp(uri, schemaScheme, sizeof(schemaScheme) - 1) == 0;
}

struct OpenSchemaFile
{
    QByteArray data;
    qsizetype offset = 0;
};

void* openSchemaUri(const char* uri)
{
    const QString name = QString::fromUtf8(uri + sizeof(schemaScheme) - 1);
    if (name.contains(u"..") || name.contains(u'/'))
        return nullptr;
    QFile file(schemaFolder() + u"/schema/"_s + name);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    auto* open = new OpenSchemaFile;
    open->data = file.read(maxFileBytes);
    return open;
}

int readSchemaUri(void* context, char* buffer, int length)
{
    auto* open = static_cast<OpenSchemaFile*>(context);
    const qsizetype n = std::min<qsizetype>(length, open->data.size() - open->offset);
    memcpy(buffer, open->data.constData() + open->offset, size_t(n));
    open->offset += n;
    return int(n);
}

int closeSchemaUri(void* context)
{
    delete static_cast<OpenSchemaFile*>(context);
    return 0;
}

struct SchemaErrors
{
    std::vector<ValidationFailure>* failures;
};

void collectSchemaError(void* userData, xmlErrorPtr error)
{
    auto* errors = static_cast<SchemaErrors*>(userData);
    if (!error || errors->failures->size() >= 100)
        return;
    ValidationFailure f;
    f.ruleId = u"XSD"_s;
    f.flag = u"fatal"_s;
    f.ruleSet = u"CII D16B schema"_s;
    f.text = QString::fromUtf8(error->message).trimmed();
    // "{urn:…:ReusableAggregateBusinessInformationEntity:100}Name" reads as "ram:Name".
    static const std::pair<const char16_t*, const char16_t*> prefixes[] = {
        {u"{urn:un:unece:uncefact:data:standard:CrossIndustryInvoice:100}", u"rsm:"},
        {u"{urn:un:unece:uncefact:data:standard:ReusableAggregateBusinessInformationEntity:100}", u"ram:"},
        {u"{urn:un:unece:uncefact:data:standard:QualifiedDataType:100}", u"qdt:"},
        {u"{urn:un:unece:uncefact:data:standard:UnqualifiedDataType:100}", u"udt:"}};
    for (const auto& [uri, prefix] : prefixes)
        f.text.replace(QString::fromUtf16(uri), QString::fromUtf16(prefix));
    f.line = error->line;
    if (error->node) {
        xmlChar* path = xmlGetNodePath(static_cast<xmlNodePtr>(error->node));
        if (path) {
            f.location = QString::fromUtf8(reinterpret_cast<const char*>(path));
            xmlFree(path);
        }
    }
    errors->failures->push_back(std::move(f));
}

void ignoreLibxmlMessage(void*, const char*, ...) {}

} // namespace

struct EInvoiceValidator::Impl
{
    QString folder;
    mutable std::mutex mutex;
    mutable std::unique_ptr<SchematronRuleSet> sets[4]; // EN CII, EN UBL, XR CII, XR UBL
    mutable QString setErrors[4];
    mutable bool schemaTried = false;
    mutable xmlSchemaPtr schema = nullptr;
    mutable QString schemaError;

    static const char16_t* fileName(int i)
    {
        static const char16_t* const names[] = {u"EN16931-CII-validation.sch", u"EN16931-UBL-validation.sch",
                                                u"XRechnung-CII-validation.sch",
                                                u"XRechnung-UBL-validation.sch"};
        return names[i];
    }

    const SchematronRuleSet* ruleSet(int i, QString* error) const
    {
        std::lock_guard lock(mutex);
        if (!sets[i] && setErrors[i].isEmpty()) {
            sets[i] = SchematronRuleSet::load(folder + u'/' + QString::fromUtf16(fileName(i)), &setErrors[i]);
            if (!sets[i] && setErrors[i].isEmpty())
                setErrors[i] = u"cannot load %1"_s.arg(QString::fromUtf16(fileName(i)));
        }
        if (!sets[i] && error)
            *error = setErrors[i];
        return sets[i].get();
    }

    xmlSchemaPtr ciiSchema(QString* error) const
    {
        std::lock_guard lock(mutex);
        if (!schemaTried) {
            schemaTried = true;
            static std::once_flag registered;
            std::call_once(registered, [] {
                xmlInitParser();
                xmlRegisterInputCallbacks(matchSchemaUri, openSchemaUri, readSchemaUri, closeSchemaUri);
            });
            schemaFolder() = folder;
            const QByteArray uri = QByteArray(schemaScheme) + "CrossIndustryInvoice_100pD16B.xsd";
            xmlSchemaParserCtxtPtr parser = xmlSchemaNewParserCtxt(uri.constData());
            xmlSchemaSetParserErrors(parser, ignoreLibxmlMessage, ignoreLibxmlMessage, nullptr);
            schema = xmlSchemaParse(parser);
            xmlSchemaFreeParserCtxt(parser);
            if (!schema)
                schemaError = u"cannot read the CII schema in %1/schema"_s.arg(folder);
        }
        if (!schema && error)
            *error = schemaError;
        return schema;
    }

    void checkSchema(const QByteArray& xml, ValidationReport& report) const
    {
        QString error;
        xmlSchemaPtr s = ciiSchema(&error);
        if (!s) {
            report.problem = error;
            return;
        }
        xmlDocPtr doc = xmlReadMemory(xml.constData(), int(xml.size()), "invoice.xml", nullptr,
                                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
        if (!doc)
            return; // not well-formed: the tree reader reports it
        xmlSchemaValidCtxtPtr ctxt = xmlSchemaNewValidCtxt(s);
        SchemaErrors errors{&report.failures};
        xmlSchemaSetValidStructuredErrors(ctxt, collectSchemaError, &errors);
        const int result = xmlSchemaValidateDoc(ctxt, doc);
        if (result != 0 && errors.failures->empty())
            report.failures.push_back({u"XSD"_s,
                                       u"fatal"_s,
                                       u"The document does not match the CII D16B schema."_s,
                                       {},
                                       0,
                                       u"CII D16B schema"_s});
        xmlSchemaFreeValidCtxt(ctxt);
        xmlFreeDoc(doc);
    }
};

bool ValidationReport::valid() const
{
    return problem.isEmpty() && errorCount() == 0;
}

int ValidationReport::errorCount() const
{
    int n = 0;
    for (const auto& f : failures)
        n += f.isError() ? 1 : 0;
    return n;
}

int ValidationReport::warningCount() const
{
    return int(failures.size()) - errorCount();
}

EInvoiceValidator::EInvoiceValidator(QString rulesFolder) : m_impl(std::make_unique<Impl>())
{
    m_impl->folder = rulesFolder.isEmpty() ? rulesFolderDefault() : rulesFolder;
}

EInvoiceValidator::~EInvoiceValidator()
{
    if (m_impl->schema)
        xmlSchemaFree(m_impl->schema);
}

EInvoiceValidator& EInvoiceValidator::shared()
{
    static EInvoiceValidator validator;
    return validator;
}

std::vector<LocationStep> locationSteps(const QString& location)
{
    std::vector<LocationStep> steps;
    for (const QString& step : location.split(u'/', Qt::SkipEmptyParts))
        steps.push_back({step.section(u'[', 0, 0).section(u':', -1),
                         step.section(u'[', 1, 1).section(u']', 0, 0).toInt()});
    return steps;
}

QString EInvoiceValidator::rulesFolderDefault()
{
    const QString custom = qEnvironmentVariable("LEDRA_VALIDATION_RULES");
    return custom.isEmpty() ? u":/validation"_s : custom;
}

bool EInvoiceValidator::preload(QString* error) const
{
    for (int i = 0; i < 4; ++i)
        if (!m_impl->ruleSet(i, error))
            return false;
    return m_impl->ciiSchema(error) != nullptr;
}

ValidationReport EInvoiceValidator::validateXml(const QByteArray& xml, Rules rules) const
{
    ValidationReport report;
    QString parseError;
    const auto document = xpath::Document::parse(xml, &parseError);
    if (!document) {
        report.problem = u"The file is not well-formed XML (%1)."_s.arg(parseError);
        return report;
    }
    const xpath::Node* root = document->documentElement();
    if (root->namespaceUri == ciiNamespace && root->localName == u"CrossIndustryInvoice")
        report.syntax = ValidationReport::Syntax::CII;
    else if ((root->namespaceUri == ublInvoiceNamespace && root->localName == u"Invoice") ||
             (root->namespaceUri == ublCreditNoteNamespace && root->localName == u"CreditNote"))
        report.syntax = ValidationReport::Syntax::UBL;
    else {
        report.problem =
            u"The XML is neither a CII invoice nor a UBL invoice or credit note (root element %1)."_s.arg(
                root->qualifiedName());
        return report;
    }
    const bool cii = report.syntax == ValidationReport::Syntax::CII;

    bool xrechnung = rules == Rules::XRechnung;
    if (rules == Rules::Automatic) {
        // The guideline the document declares (BT-24) says which rules the sender meant.
        QString guideline;
        for (const xpath::Node* a : root->children) {
            if (a->kind != xpath::Node::Kind::Element)
                continue;
            if (!cii && a->localName == u"CustomizationID")
                guideline = a->stringValue();
            if (cii && a->localName == u"ExchangedDocumentContext")
                for (const xpath::Node* b : a->children)
                    if (b->localName == u"GuidelineSpecifiedDocumentContextParameter")
                        for (const xpath::Node* c : b->children)
                            if (c->localName == u"ID")
                                guideline = c->stringValue();
        }
        xrechnung = guideline.contains(u"xrechnung"_s, Qt::CaseInsensitive);
    }
    report.xrechnungRules = xrechnung;

    if (cii) {
        report.ruleSets << u"CII D16B schema"_s;
        m_impl->checkSchema(xml, report);
    }
    std::vector<std::pair<int, QString>> sets{{cii ? 0 : 1, u"EN 16931"_s}};
    if (xrechnung)
        sets.emplace_back(cii ? 2 : 3, u"XRechnung"_s);
    for (const auto& [index, label] : sets) {
        QString error;
        const SchematronRuleSet* set = m_impl->ruleSet(index, &error);
        if (!set) {
            report.problem = error;
            return report;
        }
        report.ruleSets << label;
        SchematronResult result = set->apply(*document);
        if (!result.abortedBecause.isEmpty()) {
            report.failures.push_back(
                {label == u"XRechnung" ? u"XRECHNUNG-NOT-APPLICABLE"_s : u"EN16931-NOT-APPLICABLE"_s,
                 u"fatal"_s,
                 u"The %1 rules could not be applied to this document: %2"_s.arg(label,
                                                                                 result.abortedBecause),
                 {},
                 0,
                 label});
            continue;
        }
        for (SchematronFailure& f : result.failures)
            report.failures.push_back({f.id, f.flag, f.text, f.location, f.line, label});
    }
    return report;
}

ValidationReport EInvoiceValidator::validateBytes(const QByteArray& bytes, Rules rules) const
{
    if (!bytes.startsWith("%PDF-") && !bytes.left(1024).contains("%PDF-"))
        return validateXml(bytes, rules);
    ValidationReport report;
    report.embeddedInPdf = true;
    QList<PdfAttachments::Attachment> attachments;
    try {
        attachments = PdfAttachments::list(bytes);
    } catch (const std::exception& e) {
        report.problem = u"The PDF cannot be read (%1)."_s.arg(QString::fromUtf8(e.what()));
        return report;
    }
    const auto xml = PdfAttachments::invoiceXml(attachments);
    if (!xml) {
        report.problem =
            u"The PDF carries no e-invoice XML (no factur-x.xml, zugferd-invoice.xml or xrechnung.xml)."_s;
        return report;
    }
    report = validateXml(xml->data, rules);
    report.embeddedInPdf = true;
    return report;
}

ValidationReport EInvoiceValidator::validateFile(const QString& path, Rules rules) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        ValidationReport report;
        report.problem = u"The file cannot be read (%1)."_s.arg(file.errorString());
        return report;
    }
    if (file.size() > maxFileBytes) {
        ValidationReport report;
        report.problem = u"The file is larger than %1 MB."_s.arg(maxFileBytes / (1024 * 1024));
        return report;
    }
    return validateBytes(file.read(maxFileBytes), rules);
}
